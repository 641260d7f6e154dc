#include "framework/http/http_headers.h"

#include <ace/Log_Msg.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "framework/http/http_header_ids.h"

namespace {

// RFC 9110 token characters.
bool is_token_char(unsigned char c) {
  if (c >= '0' && c <= '9') return true;
  if ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') return true;
  return std::strchr("!#$%&'*+-.^_`|~", c) != nullptr && c != '\0';
}

bool same_name(const std::string& a, const char* b, bool ignore_case) {
  return ignore_case ? ::strcasecmp(a.c_str(), b) == 0 : a == b;
}

}  // namespace

bool HTTP_Headers::valid_name(const char* name) {
  if (name == nullptr || *name == '\0') return false;
  for (const char* p = name; *p; ++p)
    if (!is_token_char(static_cast<unsigned char>(*p))) return false;
  return true;
}

bool HTTP_Headers::valid_value(const char* value) {
  return value != nullptr && std::strpbrk(value, "\r\n") == nullptr;
}

bool HTTP_Headers::put(const char* name, const char* value, bool replace) {
  if (!valid_name(name) || !valid_value(value)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Refused HTTP header '%C': bad name or value.\n"),
               valid_name(name) ? name : "(invalid name)"));
    return false;
  }
  if (!replace) {
    fields_.emplace_back(name, value);
    return true;
  }
  auto first = std::find_if(fields_.begin(), fields_.end(),
                            [name](const Field& f) { return same_name(f.first, name, true); });
  if (first == fields_.end()) {
    fields_.emplace_back(name, value);
    return true;
  }
  first->second = value;
  fields_.erase(std::remove_if(first + 1, fields_.end(),
                               [name](const Field& f) { return same_name(f.first, name, true); }),
                fields_.end());
  return true;
}

bool HTTP_Headers::put(int id, const char* value, bool replace) {
  const char* name = http_header_name(id);
  if (name == nullptr) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Refused HTTP header id %d: not a known header.\n"), id));
    return false;
  }
  return put(name, value, replace);
}

const char* HTTP_Headers::get(const char* name, bool ignore_case) const {
  if (name == nullptr) return nullptr;
  for (const Field& f : fields_)
    if (same_name(f.first, name, ignore_case)) return f.second.c_str();
  return nullptr;
}

const char* HTTP_Headers::get(int id) const {
  const char* name = http_header_name(id);
  return name ? get(name, true) : nullptr;
}

std::size_t HTTP_Headers::remove(const char* name) {
  if (name == nullptr) return 0;
  const std::size_t before = fields_.size();
  fields_.erase(std::remove_if(fields_.begin(), fields_.end(),
                               [name](const Field& f) { return same_name(f.first, name, true); }),
                fields_.end());
  return before - fields_.size();
}
