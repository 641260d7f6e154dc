// Absolute http:// and https:// URLs taken apart (by libcurl's URL parser), for code
// that is handed a server address as one string (storage URLs and the like).
#pragma once

#include <string>

class URI {
 public:
  const std::string& scheme() const { return scheme_; }
  // The host name or address; an IPv6 address comes without its brackets.
  // with_port = true gives "host:port" ("[v6]:port" for IPv6) instead.
  std::string host(bool with_port) const;
  // The explicit port, or the scheme's default (80, 443).
  unsigned short port() const { return port_; }
  bool is_ssl() const { return scheme_ == "https"; }
  // "/" when the URL has no path.
  const std::string& path() const { return path_; }
  // Without "?"; "" when there is none.
  const std::string& query() const { return query_; }

 private:
  friend class URI_Parser;
  std::string scheme_;
  std::string host_;
  unsigned short port_ = 0;
  std::string path_;
  std::string query_;
};

class URI_Parser {
 public:
  // Fills `out` from `text`. Anything that is not a well-formed absolute http or
  // https URL with a host (null, empty, bad port, control characters, ...) gives
  // false with one log line, and `out` is left as it was.
  static bool parse(const char* text, URI& out);
};
