// json_spirit::Value: the JSON value the library's code is written against.
//
// An object is an ordered std::map (members come out sorted by key), an array a
// std::vector. Numbers keep their kind: int_type holds any 64-bit integer, signed or
// unsigned, exactly; real_type holds a double. A secure string (secure_str_type) holds a
// secret: it is written to request bodies as an ordinary JSON string, masked in text meant
// for log lines (see JSON_Dump) and its bytes are wiped when it goes away.
//
// Typed getters throw std::runtime_error on a type mismatch; callers that read outside
// documents catch it and turn it into a logged failure.
//
// A Value holds its map or vector inline (one allocation less per container), so what
// get_obj() or get_array() returns lives inside that Value: the reference does not follow
// the Value when it is moved, e.g. by the growth of the array holding it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "framework/base/api.h"

namespace json_spirit {

// The numeric codes are part of the library's interface (they appear in log lines).
enum Value_type {
  obj_type = 0,
  array_type = 1,
  str_type = 2,
  secure_str_type = 3,
  bool_type = 4,
  int_type = 5,
  real_type = 6,
  null_type = 7
};

// "obj_type", "int_type", ...: for error texts.
AGENTUTIL_API const char* type_name(Value_type t);

class Value;
using Object = std::map<std::string, Value>;
using Array = std::vector<Value>;
using Pair = Object::value_type;

class AGENTUTIL_API Value {
 public:
  // The shared null value: what a lookup of a missing member reads as.
  static const Value null;

  Value() noexcept : type_(null_type), u_(0) {}
  Value(std::nullptr_t) noexcept : Value() {}  // NOLINT(google-explicit-constructor)
  Value(const char* s);                                  // NOLINT: null pointer gives null
  Value(std::string s) noexcept;                         // NOLINT(google-explicit-constructor)
  Value(bool b) noexcept : type_(bool_type) { u_ = 0; b_ = b; }  // NOLINT(google-explicit-constructor)
  Value(double d) noexcept : type_(real_type) { d_ = d; }  // NOLINT(google-explicit-constructor)
  Value(float f) noexcept : Value(static_cast<double>(f)) {}  // NOLINT
  Value(Object o);                                        // NOLINT(google-explicit-constructor)
  Value(Array a);                                         // NOLINT(google-explicit-constructor)

  // Every integer type (int, unsigned, long, int64_t, uint64_t, ...), but not bool or char
  // pointers. Signed values are held as int64; unsigned ones above INT64_MAX are flagged.
  template <class T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
  Value(T i) noexcept : type_(int_type) {  // NOLINT(google-explicit-constructor)
    if constexpr (std::is_signed_v<T>) {
      i_ = static_cast<int64_t>(i);
    } else {
      u_ = static_cast<uint64_t>(i);
      big_uint_ = u_ > static_cast<uint64_t>(INT64_MAX);
    }
  }
  // Any other pointer would silently become a bool.
  template <class T>
  Value(const T*) = delete;

  // A string that holds a secret.
  static Value secure(std::string s) noexcept;

  Value(const Value& other);
  // Scalars are moved and destroyed inline; documents hold millions of them.
  Value(Value&& other) noexcept : type_(other.type_), big_uint_(other.big_uint_) {
    if (is_scalar()) {
      u_ = other.u_;
      other.type_ = null_type;
      other.big_uint_ = false;
    } else {
      type_ = null_type;
      steal(other);
    }
  }
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  ~Value() {
    if (!is_scalar()) destroy();
  }

  Value_type type() const noexcept { return type_; }
  bool is_null() const noexcept { return type_ == null_type; }
  // An int_type value above INT64_MAX (readable only by get_uint64).
  bool is_uint64() const noexcept { return type_ == int_type && big_uint_; }

  // The getters are inline: writing a document calls them for every value.
  const Object& get_obj() const {
    if (!is(obj_type)) type_error(obj_type);
    return o_;
  }
  Object& get_obj() {
    if (!is(obj_type)) type_error(obj_type);
    return o_;
  }
  const Array& get_array() const {
    if (!is(array_type)) type_error(array_type);
    return a_;
  }
  Array& get_array() {
    if (!is(array_type)) type_error(array_type);
    return a_;
  }
  // Both string kinds.
  const std::string& get_str() const {
    if (!is(str_type) && !is(secure_str_type)) type_error(str_type);
    return s_;
  }
  std::string& get_str() {
    if (!is(str_type) && !is(secure_str_type)) type_error(str_type);
    return s_;
  }
  bool get_bool() const {
    if (!is(bool_type)) type_error(bool_type);
    return b_;
  }
  int get_int() const;  // throws when out of int range
  // Throws above INT64_MAX.
  int64_t get_int64() const {
    if (!is(int_type) || big_uint_) int64_error();
    return i_;
  }
  // Throws when negative.
  uint64_t get_uint64() const {
    if (!is(int_type) || (!big_uint_ && i_ < 0)) uint64_error();
    return u_;
  }
  // Reals, and integers widened to double.
  double get_real() const {
    if (is(real_type)) return d_;
    if (!is(int_type)) type_error(real_type);
    return big_uint_ ? static_cast<double>(u_) : static_cast<double>(i_);
  }

  void swap(Value& other) noexcept;

  friend bool operator==(const Value& a, const Value& b);
  friend bool operator!=(const Value& a, const Value& b) { return !(a == b); }

 private:
  bool is(Value_type t) const noexcept { return type_ == t; }
  // Null, bool and numbers: all type codes from bool_type on.
  bool is_scalar() const noexcept { return type_ >= bool_type; }
  bool is_container() const noexcept { return type_ == obj_type || type_ == array_type; }
  void destroy() noexcept;
  void destroy_container() noexcept;
  // Takes other's content, leaves other null. Inline like the move constructor, but for
  // secrets, which have their old bytes wiped.
  void steal(Value& other) noexcept {
    switch (other.type_) {
      case str_type: new (&s_) std::string(std::move(other.s_)); other.s_.~basic_string(); break;
      case secure_str_type: steal_secret(other); break;
      case obj_type: new (&o_) Object(std::move(other.o_)); other.o_.~Object(); break;
      case array_type: new (&a_) Array(std::move(other.a_)); other.a_.~Array(); break;
      default: u_ = other.u_; break;
    }
    type_ = other.type_;
    big_uint_ = other.big_uint_;
    other.type_ = null_type;
    other.big_uint_ = false;
  }
  void steal_secret(Value& other) noexcept;
  void copy_from(const Value& other);    // *this must hold nothing
  void move_out_children(std::vector<Value>& pending) noexcept;
  // Each throws std::runtime_error.
  [[noreturn]] void type_error(Value_type wanted) const;
  [[noreturn]] void int64_error() const;
  [[noreturn]] void uint64_error() const;

  Value_type type_;
  bool big_uint_ = false;
  union {
    bool b_;
    int64_t i_;
    uint64_t u_;
    double d_;
    std::string s_;  // str_type and secure_str_type
    Object o_;       // held inline: one allocation less per container
    Array a_;
  };
};

// The friend declaration alone cannot carry the export attribute.
AGENTUTIL_API bool operator==(const Value& a, const Value& b);

inline void swap(Value& a, Value& b) noexcept { a.swap(b); }

}  // namespace json_spirit
