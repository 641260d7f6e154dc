// Building request bodies whose optional keys are left out, not sent as null, when their
// value is absent or empty:
//
//   Object body{{"username", user}, {"password", Value::secure(pass)}};
//   insert_if_not_empty(body, "scope", scope);
#pragma once

#include <string>

#include "framework/json/value.h"

namespace json_spirit {

// Each returns true when it set the key.
inline bool insert_if_not_empty(Object& obj, const std::string& key, const std::string& value) {
  if (value.empty()) return false;
  obj[key] = value;
  return true;
}

// A null pointer counts as empty.
inline bool insert_if_not_empty(Object& obj, const std::string& key, const char* value) {
  if (value == nullptr || *value == '\0') return false;
  obj[key] = value;
  return true;
}

// A C string goes in as a string (the template below would take its first char).
inline bool insert_if_not_null(Object& obj, const std::string& key, const char* value) {
  if (value == nullptr) return false;
  obj[key] = value;
  return true;
}

// Sets the key to *value when value is not null (any type Value can be built from).
template <class T>
bool insert_if_not_null(Object& obj, const std::string& key, const T* value) {
  if (value == nullptr) return false;
  obj[key] = Value(*value);
  return true;
}

}  // namespace json_spirit
