// One outgoing request: method, target path, query text and header fields. The
// server address lives in the client or session that sends it.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/http/cgi_base.h"
#include "framework/http/http_method.h"

class AGENTUTIL_API HTTP_Request : public CGI_Base {
 public:
  // parse_query = true splits `uri` at its first "?" into path and query text
  // (replacing any query held before); false keeps it whole as the path and leaves
  // the query alone (a query built into the path then goes out as is, and a query
  // set separately is joined to it with "&"). A null uri reads as "".
  explicit HTTP_Request(int method = HTTP_GET, const char* uri = "/", bool parse_query = true);

  int method() const { return method_; }
  void method(int m) { method_ = m; }

  const std::string& uri() const { return path_; }
  void uri(const char* uri, bool parse_query);

  // The query text without "?", "" when there is none.
  const char* query_string() const { return query_.c_str(); }
  // Replaces the query text; a leading "?" is dropped. Null clears it.
  void query_string(const char* query);
  // The query text itself, for builders that append parameters in place.
  std::string& query_string_buffer() { return query_; }
  const std::string& query_string_buffer() const { return query_; }

  // What goes on the request line: the path and, when there is one, the query.
  std::string target() const;

 private:
  int method_;
  std::string path_;
  std::string query_;
};
