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
