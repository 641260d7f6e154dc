// Drives a RapidJSON Writer (or PrettyWriter) over a json_spirit::Value. Shared by the
// whole-document writer and the streaming generator. Iterative, so a deep tree built in
// memory cannot exhaust the stack.
#pragma once

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "framework/json/rapidjson_setup.h"
#include "framework/json/utf8.h"
#include "framework/json/value.h"
#include "framework/json/writer.h"

namespace json_spirit {
namespace detail {

template <class Writer>
bool emit_string(Writer& w, const std::string& s, bool key) {
  if (s.size() >= std::numeric_limits<rapidjson::SizeType>::max()) return false;
  const auto n = static_cast<rapidjson::SizeType>(s.size());
  if (is_valid_utf8(s.data(), s.size())) return key ? w.Key(s.data(), n) : w.String(s.data(), n);
  const std::string fixed = to_valid_utf8(s.data(), s.size());
  if (fixed.size() >= std::numeric_limits<rapidjson::SizeType>::max()) return false;
  const auto m = static_cast<rapidjson::SizeType>(fixed.size());
  return key ? w.Key(fixed.data(), m) : w.String(fixed.data(), m);
}

template <class Writer>
bool emit_scalar(Writer& w, const Value& v, Secrets secrets) {
  switch (v.type()) {
    case null_type: return w.Null();
    case bool_type: return w.Bool(v.get_bool());
    case int_type: return v.is_uint64() ? w.Uint64(v.get_uint64()) : w.Int64(v.get_int64());
    case real_type: {
      const double d = v.get_real();
      return std::isfinite(d) ? w.Double(d) : w.Null();
    }
    case secure_str_type:
      if (secrets == Secrets::masked) return w.String(MASKED_SECRET);
      return emit_string(w, v.get_str(), false);
    case str_type: return emit_string(w, v.get_str(), false);
    default: return false;
  }
}

// One open container: either an object being walked member by member or an array.
struct Emit_Frame {
  const Object* obj;
  Object::const_iterator member;
  const Array* arr;
  std::size_t index;
};

template <class Writer>
bool emit_value(Writer& w, const Value& root, Secrets secrets) {
  std::vector<Emit_Frame> open;
  // Writes v, or opens it when it is a container.
  auto visit = [&](const Value& v) {
    if (v.type() == obj_type) {
      open.push_back({&v.get_obj(), v.get_obj().begin(), nullptr, 0});
      return w.StartObject();
    }
    if (v.type() == array_type) {
      open.push_back({nullptr, {}, &v.get_array(), 0});
      return w.StartArray();
    }
    return emit_scalar(w, v, secrets);
  };
  if (!visit(root)) return false;
  while (!open.empty()) {
    Emit_Frame& f = open.back();
    const Value* next = nullptr;
    if (f.obj) {
      if (f.member == f.obj->end()) {
        open.pop_back();
        if (!w.EndObject()) return false;
        continue;
      }
      if (!emit_string(w, f.member->first, true)) return false;
      next = &f.member->second;
      ++f.member;
    } else {
      if (f.index == f.arr->size()) {
        open.pop_back();
        if (!w.EndArray()) return false;
        continue;
      }
      next = &(*f.arr)[f.index++];
    }
    if (!visit(*next)) return false;  // may grow `open`: f is not used after this
  }
  return true;
}

}  // namespace detail
}  // namespace json_spirit
