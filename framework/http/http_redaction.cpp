#include "framework/http/http_redaction.h"

#include <strings.h>

#include "framework/http/http_header_ids.h"

bool http_header_is_secret(const char* name) {
  if (name == nullptr) return false;
  static const char* const SECRET[] = {
      "Authorization", "Proxy-Authorization", "Cookie", "Set-Cookie", "iBaseToken", "X-Auth-Token",
      http_header_name(HTTP_HEADER_ACCESS_KEY)};
  for (const char* secret : SECRET)
    if (::strcasecmp(name, secret) == 0) return true;
  return false;
}

std::string http_headers_for_log(const HTTP_Headers& headers) {
  std::string text;
  for (const auto& field : headers) {
    if (!text.empty()) text += ", ";
    text += field.first + ": " + (http_header_is_secret(field.first.c_str()) ? "<redacted>" : field.second);
  }
  return text;
}

std::string http_cookie_for_log(const std::string& cookie) {
  std::string text;
  size_t start = 0;
  while (start <= cookie.size()) {
    size_t end = cookie.find(';', start);
    if (end == std::string::npos) end = cookie.size();
    const std::string piece = cookie.substr(start, end - start);
    const size_t eq = piece.find('=');
    if (!text.empty() || start > 0) text += ';';
    text += eq == std::string::npos ? piece : piece.substr(0, eq + 1) + "<redacted>";
    start = end + 1;
  }
  return text;
}
