// Reading fields out of JSON documents received from outside.
//
// JSON_Pointer_Extractor names fields by JSON pointer (RFC 6901: "/data/ID", "/a~1b" for
// the member "a/b", "/rows/0" for an array element). Each call says whether the field is
// required:
//
//   JSON_Pointer_Extractor ex(reply);
//   ex.extract("/data/ID", id, true);              // throws when missing
//   ex.extract("/data/remoteLunWwn", wwn, false);  // leaves wwn untouched when missing
//
// A required pointer that names nothing throws std::runtime_error with the text
// "JSON Pointer path '<path>' not exist in JSON!". A field that is present but does not
// convert throws whether required or not. Integer targets take JSON integers and JSON
// strings holding a decimal number ("11"), range-checked; double targets take any number;
// string targets take strings only.
//
// extract_member reads a member of an object by name and throws when the value is not an
// object, the member is missing, or it does not convert.
#pragma once

#include <cstdint>
#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace json_spirit {

class AGENTUTIL_API JSON_Pointer_Extractor {
 public:
  explicit JSON_Pointer_Extractor(const Value& root) : root_(root) {}

  // The value `path` names, or nullptr. Throws on a malformed pointer (not "" and not
  // starting with '/', or '~' not followed by 0 or 1).
  const Value* find(const std::string& path) const;

  // True when the field was there and `out` now holds it; false when an optional field
  // is missing.
  bool extract(const std::string& path, std::string& out, bool required) const;
  bool extract(const std::string& path, int& out, bool required) const;
  bool extract(const std::string& path, unsigned& out, bool required) const;
  bool extract(const std::string& path, int64_t& out, bool required) const;
  bool extract(const std::string& path, uint64_t& out, bool required) const;
  bool extract(const std::string& path, bool& out, bool required) const;
  bool extract(const std::string& path, double& out, bool required) const;
  bool extract(const std::string& path, Value& out, bool required) const;

 private:
  template <class T>
  bool extract_as(const std::string& path, T& out, bool required) const;

  const Value& root_;
};

// The member `key` of the object `obj`; throws when obj is not an object or has no such member.
AGENTUTIL_API const Value& get_member(const Value& obj, const std::string& key);

AGENTUTIL_API void extract_member(const Value& obj, const std::string& key, std::string& out);
AGENTUTIL_API void extract_member(const Value& obj, const std::string& key, int& out);
AGENTUTIL_API void extract_member(const Value& obj, const std::string& key, unsigned& out);
AGENTUTIL_API void extract_member(const Value& obj, const std::string& key, int64_t& out);
AGENTUTIL_API void extract_member(const Value& obj, const std::string& key, uint64_t& out);
AGENTUTIL_API void extract_member(const Value& obj, const std::string& key, bool& out);
AGENTUTIL_API void extract_member(const Value& obj, const std::string& key, double& out);
AGENTUTIL_API void extract_member(const Value& obj, const std::string& key, Value& out);

}  // namespace json_spirit
