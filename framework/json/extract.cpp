#include "framework/json/extract.h"

#include <charconv>
#include <limits>
#include <stdexcept>
#include <type_traits>

namespace json_spirit {

namespace {

[[noreturn]] void conversion_error(const std::string& subject, const Value& v, const char* wanted) {
  throw std::runtime_error(subject + " holds " + type_name(v.type()) + ", not " + wanted);
}

template <class T>
const char* integer_name() {
  if constexpr (std::is_same_v<T, int>) return "an int";
  if constexpr (std::is_same_v<T, unsigned>) return "an unsigned int";
  if constexpr (std::is_same_v<T, int64_t>) return "an int64";
  return "a uint64";
}

template <class T>
bool fits(int64_t i) {
  if constexpr (std::is_signed_v<T>)
    return i >= std::numeric_limits<T>::min() && i <= std::numeric_limits<T>::max();
  else
    return i >= 0 && static_cast<uint64_t>(i) <= std::numeric_limits<T>::max();
}

// A JSON integer, or a string holding nothing but a decimal number ("-12", not " 12" or "12a").
template <class T>
void convert_integer(const Value& v, T& out, const std::string& subject) {
  if (v.type() == int_type) {
    if (v.is_uint64()) {
      if (v.get_uint64() > static_cast<uint64_t>(std::numeric_limits<T>::max()))
        throw std::runtime_error(subject + " holds a number out of range for " + integer_name<T>());
      out = static_cast<T>(v.get_uint64());
      return;
    }
    if (!fits<T>(v.get_int64()))
      throw std::runtime_error(subject + " holds a number out of range for " + integer_name<T>());
    out = static_cast<T>(v.get_int64());
    return;
  }
  if (v.type() != str_type) conversion_error(subject, v, integer_name<T>());
  const std::string& s = v.get_str();
  T parsed{};
  const auto r = std::from_chars(s.data(), s.data() + s.size(), parsed);
  if (r.ec == std::errc::result_out_of_range)
    throw std::runtime_error(subject + " holds a number out of range for " + integer_name<T>());
  if (s.empty() || r.ec != std::errc() || r.ptr != s.data() + s.size())
    throw std::runtime_error(subject + " holds a string that is not " + integer_name<T>());
  out = parsed;
}

void convert(const Value& v, int& out, const std::string& subject) { convert_integer(v, out, subject); }
void convert(const Value& v, unsigned& out, const std::string& subject) { convert_integer(v, out, subject); }
void convert(const Value& v, int64_t& out, const std::string& subject) { convert_integer(v, out, subject); }
void convert(const Value& v, uint64_t& out, const std::string& subject) { convert_integer(v, out, subject); }

void convert(const Value& v, std::string& out, const std::string& subject) {
  if (v.type() != str_type && v.type() != secure_str_type) conversion_error(subject, v, "a string");
  out = v.get_str();
}

void convert(const Value& v, bool& out, const std::string& subject) {
  if (v.type() != bool_type) conversion_error(subject, v, "a bool");
  out = v.get_bool();
}

void convert(const Value& v, double& out, const std::string& subject) {
  if (v.type() != real_type && v.type() != int_type) conversion_error(subject, v, "a number");
  out = v.get_real();
}

void convert(const Value& v, Value& out, const std::string&) { out = v; }

std::string pointer_subject(const std::string& path) { return "JSON Pointer path '" + path + "'"; }

std::string member_subject(const std::string& key) { return "JSON member '" + key + "'"; }

[[noreturn]] void bad_pointer(const std::string& path) {
  throw std::runtime_error("Invalid JSON Pointer '" + path + "'");
}

// Reference token `path[begin, end)` with ~1 and ~0 decoded.
std::string unescape_token(const std::string& path, std::size_t begin, std::size_t end) {
  std::string token;
  token.reserve(end - begin);
  for (std::size_t i = begin; i < end; ++i) {
    if (path[i] != '~') {
      token.push_back(path[i]);
      continue;
    }
    if (i + 1 == end || (path[i + 1] != '0' && path[i + 1] != '1')) bad_pointer(path);
    token.push_back(path[++i] == '0' ? '~' : '/');
  }
  return token;
}

// An array index token: "0" or a decimal without leading zeros; "-" and others name nothing.
bool array_index(const std::string& token, std::size_t& index) {
  if (token.empty() || (token.size() > 1 && token[0] == '0')) return false;
  const auto r = std::from_chars(token.data(), token.data() + token.size(), index);
  return r.ec == std::errc() && r.ptr == token.data() + token.size();
}

const Value* step(const Value& node, const std::string& token) {
  if (node.type() == obj_type) {
    const Object& o = node.get_obj();
    const auto it = o.find(token);
    return it == o.end() ? nullptr : &it->second;
  }
  if (node.type() == array_type) {
    std::size_t index = 0;
    const Array& a = node.get_array();
    if (!array_index(token, index) || index >= a.size()) return nullptr;
    return &a[index];
  }
  return nullptr;
}

template <class T>
void extract_member_as(const Value& obj, const std::string& key, T& out) {
  convert(get_member(obj, key), out, member_subject(key));
}

}  // namespace

const Value* JSON_Pointer_Extractor::find(const std::string& path) const {
  if (path.empty()) return &root_;
  if (path[0] != '/') bad_pointer(path);
  const Value* node = &root_;
  std::size_t begin = 1;
  for (;;) {
    const std::size_t slash = path.find('/', begin);
    const std::size_t end = slash == std::string::npos ? path.size() : slash;
    node = step(*node, unescape_token(path, begin, end));
    if (node == nullptr) {
      // The rest must still be a well-formed pointer.
      if (slash != std::string::npos) unescape_token(path, slash, path.size());
      return nullptr;
    }
    if (slash == std::string::npos) return node;
    begin = slash + 1;
  }
}

template <class T>
bool JSON_Pointer_Extractor::extract_as(const std::string& path, T& out, bool required) const {
  const Value* v = find(path);
  if (v == nullptr) {
    if (required) throw std::runtime_error("JSON Pointer path '" + path + "' not exist in JSON!");
    return false;
  }
  convert(*v, out, pointer_subject(path));
  return true;
}

bool JSON_Pointer_Extractor::extract(const std::string& path, std::string& out, bool required) const {
  return extract_as(path, out, required);
}
bool JSON_Pointer_Extractor::extract(const std::string& path, int& out, bool required) const {
  return extract_as(path, out, required);
}
bool JSON_Pointer_Extractor::extract(const std::string& path, unsigned& out, bool required) const {
  return extract_as(path, out, required);
}
bool JSON_Pointer_Extractor::extract(const std::string& path, int64_t& out, bool required) const {
  return extract_as(path, out, required);
}
bool JSON_Pointer_Extractor::extract(const std::string& path, uint64_t& out, bool required) const {
  return extract_as(path, out, required);
}
bool JSON_Pointer_Extractor::extract(const std::string& path, bool& out, bool required) const {
  return extract_as(path, out, required);
}
bool JSON_Pointer_Extractor::extract(const std::string& path, double& out, bool required) const {
  return extract_as(path, out, required);
}
bool JSON_Pointer_Extractor::extract(const std::string& path, Value& out, bool required) const {
  return extract_as(path, out, required);
}

const Value& get_member(const Value& obj, const std::string& key) {
  const Object& o = obj.get_obj();
  const auto it = o.find(key);
  if (it == o.end()) throw std::runtime_error("JSON member '" + key + "' not exist in JSON object!");
  return it->second;
}

void extract_member(const Value& obj, const std::string& key, std::string& out) { extract_member_as(obj, key, out); }
void extract_member(const Value& obj, const std::string& key, int& out) { extract_member_as(obj, key, out); }
void extract_member(const Value& obj, const std::string& key, unsigned& out) { extract_member_as(obj, key, out); }
void extract_member(const Value& obj, const std::string& key, int64_t& out) { extract_member_as(obj, key, out); }
void extract_member(const Value& obj, const std::string& key, uint64_t& out) { extract_member_as(obj, key, out); }
void extract_member(const Value& obj, const std::string& key, bool& out) { extract_member_as(obj, key, out); }
void extract_member(const Value& obj, const std::string& key, double& out) { extract_member_as(obj, key, out); }
void extract_member(const Value& obj, const std::string& key, Value& out) { extract_member_as(obj, key, out); }

}  // namespace json_spirit
