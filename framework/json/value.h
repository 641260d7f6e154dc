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
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

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
const char* type_name(Value_type t);

class Value;
using Object = std::map<std::string, Value>;
using Array = std::vector<Value>;
using Pair = Object::value_type;

class Value {
 public:
  // The shared null value: what a lookup of a missing member reads as.
  static const Value null;

  Value() noexcept : type_(null_type) {}
  Value(std::nullptr_t) noexcept : type_(null_type) {}  // NOLINT(google-explicit-constructor)
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
  Value(Value&& other) noexcept;
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  ~Value();

  Value_type type() const noexcept { return type_; }
  bool is_null() const noexcept { return type_ == null_type; }
  // An int_type value above INT64_MAX (readable only by get_uint64).
  bool is_uint64() const noexcept { return type_ == int_type && big_uint_; }

  const Object& get_obj() const;
  Object& get_obj();
  const Array& get_array() const;
  Array& get_array();
  // Both string kinds.
  const std::string& get_str() const;
  std::string& get_str();
  bool get_bool() const;
  int get_int() const;         // throws when out of int range
  int64_t get_int64() const;   // throws above INT64_MAX
  uint64_t get_uint64() const; // throws when negative
  double get_real() const;     // reals, and integers widened to double

  void swap(Value& other) noexcept;

  friend bool operator==(const Value& a, const Value& b);
  friend bool operator!=(const Value& a, const Value& b) { return !(a == b); }

 private:
  void destroy() noexcept;
  void destroy_container() noexcept;
  void steal(Value& other) noexcept;     // takes other's content, leaves other null
  void copy_from(const Value& other);    // *this must hold nothing
  bool is_container() const noexcept { return type_ == obj_type || type_ == array_type; }
  void move_out_children(std::vector<Value>& pending) noexcept;
  [[noreturn]] void type_error(Value_type wanted) const;

  Value_type type_;
  bool big_uint_ = false;
  union {
    bool b_;
    int64_t i_;
    uint64_t u_;
    double d_;
    std::string s_;  // str_type and secure_str_type
    Object* o_;
    Array* a_;
  };
};

inline void swap(Value& a, Value& b) noexcept { a.swap(b); }

}  // namespace json_spirit
