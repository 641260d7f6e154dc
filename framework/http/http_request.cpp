#include "framework/http/http_request.h"

#include <cstring>

HTTP_Request::HTTP_Request(int method, const char* uri, bool parse_query) : method_(method) {
  this->uri(uri, parse_query);
}

void HTTP_Request::uri(const char* uri, bool parse_query) {
  path_ = uri ? uri : "";
  if (!parse_query) return;
  const std::string::size_type mark = path_.find('?');
  if (mark == std::string::npos) {
    query_.clear();
    return;
  }
  query_ = path_.substr(mark + 1);
  path_.erase(mark);
}

void HTTP_Request::query_string(const char* query) {
  if (query == nullptr) {
    query_.clear();
    return;
  }
  query_ = query[0] == '?' ? query + 1 : query;
}

std::string HTTP_Request::target() const {
  if (query_.empty()) return path_;
  const char joint = path_.find('?') == std::string::npos ? '?' : '&';
  return path_ + joint + query_;
}
