#include "framework/json/value.h"

#include <climits>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

namespace json_spirit {

namespace {

// Overwrites a secret's whole buffer (capacity, not just size) in a way the compiler
// may not drop as a dead store.
void wipe(std::string& s) noexcept {
  if (s.capacity() > 0) explicit_bzero(&s[0], s.capacity());
}

}  // namespace

const char* type_name(Value_type t) {
  switch (t) {
    case obj_type: return "obj_type";
    case array_type: return "array_type";
    case str_type: return "str_type";
    case secure_str_type: return "secure_str_type";
    case bool_type: return "bool_type";
    case int_type: return "int_type";
    case real_type: return "real_type";
    case null_type: return "null_type";
  }
  return "unknown_type";
}

const Value Value::null;

Value::Value(const char* s) : type_(s ? str_type : null_type) {
  if (s)
    new (&s_) std::string(s);
  else
    u_ = 0;
}

Value::Value(std::string s) noexcept : type_(str_type) { new (&s_) std::string(std::move(s)); }

Value::Value(Object o) : type_(obj_type) { new (&o_) Object(std::move(o)); }

Value::Value(Array a) : type_(array_type) { new (&a_) Array(std::move(a)); }

Value Value::secure(std::string s) noexcept {
  Value v(std::move(s));
  v.type_ = secure_str_type;
  return v;
}

Value::Value(const Value& other) : type_(null_type) { copy_from(other); }

Value& Value::operator=(const Value& other) {
  if (this != &other) {
    Value tmp(other);
    swap(tmp);
  }
  return *this;
}

Value& Value::operator=(Value&& other) noexcept {
  if (this != &other) {
    // other may live inside *this (v = std::move(v.get_array()[0])): take it out first.
    Value tmp(std::move(other));
    destroy();
    steal(tmp);
  }
  return *this;
}

void Value::copy_from(const Value& other) {
  switch (other.type_) {
    case str_type:
    case secure_str_type: new (&s_) std::string(other.s_); break;
    case obj_type: new (&o_) Object(other.o_); break;
    case array_type: new (&a_) Array(other.a_); break;
    default: u_ = other.u_; break;
  }
  type_ = other.type_;
  big_uint_ = other.big_uint_;
}

// Only the string part; steal() sets the type.
void Value::steal_secret(Value& other) noexcept {
  new (&s_) std::string(std::move(other.s_));
  wipe(other.s_);  // a short secret was copied out of the small-string buffer
  other.s_.~basic_string();
}

// Moves the nested containers of this container into `pending`, then frees the container.
// Scalar children die with it, so no destructor below recurses more than one level.
void Value::move_out_children(std::vector<Value>& pending) noexcept {
  if (type_ == obj_type) {
    for (auto& member : o_)
      if (member.second.is_container()) pending.emplace_back(std::move(member.second));
    o_.~Object();
  } else {
    for (auto& element : a_)
      if (element.is_container()) pending.emplace_back(std::move(element));
    a_.~Array();
  }
  type_ = null_type;
}

void Value::destroy() noexcept {
  switch (type_) {
    case str_type: s_.~basic_string(); break;
    case secure_str_type: wipe(s_); s_.~basic_string(); break;
    case obj_type:
    case array_type: destroy_container(); break;
    default: break;
  }
  type_ = null_type;
  big_uint_ = false;
}

// Containers nested up to this depth are freed by plain recursion (one walk, no extra
// allocation); below it the rest of the tree is taken apart iteratively, so a deeply
// nested tree cannot exhaust the stack.
namespace {
constexpr unsigned RECURSIVE_DESTROY_DEPTH = 64;
thread_local unsigned destroy_depth = 0;
}  // namespace

void Value::destroy_container() noexcept {
  if (destroy_depth < RECURSIVE_DESTROY_DEPTH) {
    ++destroy_depth;
    if (type_ == obj_type) {
      // Members go in key order, the order the reader allocated their nodes in. The map's
      // own teardown frees them in reverse order, which costs malloc markedly more on
      // large documents (its free lists end up walked against the memory order).
      while (!o_.empty()) o_.extract(o_.begin());
      o_.~Object();
    } else {
      a_.~Array();
    }
    --destroy_depth;
    type_ = null_type;
    return;
  }
  std::vector<Value> pending;
  move_out_children(pending);
  while (!pending.empty()) {
    Value node(std::move(pending.back()));
    pending.pop_back();
    node.move_out_children(pending);
  }
}

void Value::swap(Value& other) noexcept {
  if (this == &other) return;
  Value tmp(std::move(other));
  other.steal(*this);
  steal(tmp);
}

void Value::type_error(Value_type wanted) const {
  throw std::runtime_error(std::string("JSON value is ") + type_name(type_) + ", not " +
                           type_name(wanted));
}

int Value::get_int() const {
  const int64_t v = get_int64();
  if (v < INT_MIN || v > INT_MAX)
    throw std::runtime_error("JSON integer " + std::to_string(v) + " is out of int range");
  return static_cast<int>(v);
}

void Value::int64_error() const {
  if (type_ != int_type) type_error(int_type);
  throw std::runtime_error("JSON integer " + std::to_string(u_) + " is out of int64 range");
}

void Value::uint64_error() const {
  if (type_ != int_type) type_error(int_type);
  throw std::runtime_error("JSON integer " + std::to_string(i_) + " is negative");
}

bool operator==(const Value& a, const Value& b) {
  if (a.type_ != b.type_) return false;
  switch (a.type_) {
    case null_type: return true;
    case bool_type: return a.b_ == b.b_;
    case int_type: return a.big_uint_ == b.big_uint_ && a.i_ == b.i_;
    case real_type: return a.d_ == b.d_;
    case str_type:
    case secure_str_type: return a.s_ == b.s_;
    case obj_type: return a.o_ == b.o_;
    case array_type: return a.a_ == b.a_;
  }
  return false;
}

}  // namespace json_spirit
