// An ordered list of header fields. Names compare without regard to case, as HTTP
// wants; several fields may share a name (Set-Cookie) unless put() is told to replace.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "framework/base/api.h"

class AGENTUTIL_API HTTP_Headers {
 public:
  using Field = std::pair<std::string, std::string>;
  using const_iterator = std::vector<Field>::const_iterator;

  // Adds a field. replace = true leaves exactly one field of that name, holding
  // `value`; false adds another one. A name that is not an HTTP token, a null value
  // or a value with CR or LF in it is refused (false, one log line that never shows
  // the value): such text would let a caller's data forge extra header lines.
  bool put(const char* name, const char* value, bool replace = true);
  bool put(const std::string& name, const std::string& value, bool replace = true) {
    return put(name.c_str(), value.c_str(), replace);
  }
  // By the numeric id of http_header_ids.h; an unknown id is refused.
  bool put(int id, const char* value, bool replace = true);

  // The first value of `name`, or null when there is none. ignore_case = false
  // compares names byte for byte.
  const char* get(const char* name, bool ignore_case = true) const;
  const char* get(int id) const;

  // Removes every field of that name; returns how many went.
  std::size_t remove(const char* name);
  void clear() { fields_.clear(); }

  std::size_t size() const { return fields_.size(); }
  bool empty() const { return fields_.empty(); }
  const_iterator begin() const { return fields_.begin(); }
  const_iterator end() const { return fields_.end(); }

  // Checks of outside text, shared with whoever builds header lines.
  static bool valid_name(const char* name);
  static bool valid_value(const char* value);

 private:
  std::vector<Field> fields_;
};
