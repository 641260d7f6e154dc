// The SAX handler under json_spirit::read: turns RapidJSON's parse events into a Value.
//
// It builds the document bottom-up, the way RapidJSON's own DOM does: the values of each
// open container wait on a stack until the container closes. Then an array takes them at
// its exact size, and an object takes its members in key order, so the map's nodes are
// allocated in the order they are later walked: writing, copying or freeing the document
// then streams through memory instead of chasing pointers across it.
//
// The events that come by the million are inline here; closing a container and the
// rarer checks live in value_builder.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "framework/json/rapidjson_setup.h"
#include "framework/json/reader.h"
#include "framework/json/utf8.h"
#include "framework/json/value.h"
#include <rapidjson/reader.h>

namespace json_spirit {
namespace detail {

class Value_Builder {
 public:
  using SizeType = rapidjson::SizeType;

  // `stream` is the one RapidJSON parses from: numbers given as doubles are read again
  // from its text (see read_real).
  explicit Value_Builder(const rapidjson::StringStream& stream) : stream_(stream) {}
  Value& root() { return root_; }
  // Why the handler stopped the parse; empty when it did not.
  const std::string& error() const { return error_; }

  bool Null() { return add(); }
  bool Bool(bool b) { return add(b); }
  bool Int(int i) { return add(i); }
  bool Uint(unsigned u) { return add(u); }
  bool Int64(int64_t i) { return add(i); }
  bool Uint64(uint64_t u) { return add(u); }
  bool Double(double) {
    Value number;
    return read_real(number) && add(std::move(number));
  }
  bool RawNumber(const char*, SizeType, bool) { return fail("Unexpected raw number."); }

  // RapidJSON copies string bytes as they stand (its own validation would also switch off
  // its SIMD scanning), so each decoded string is checked here. That also catches a lone
  // low-surrogate escape (\uDC00), which RapidJSON decodes to the bytes ED B0 80.
  bool String(const char* s, SizeType n, bool) {
    if (!is_valid_utf8(s, n)) return fail("Invalid encoding in string.");
    return add(std::string(s, n));
  }
  bool Key(const char* s, SizeType n, bool) {
    if (!is_valid_utf8(s, n)) return fail("Invalid encoding in member name.");
    keys_.emplace_back(s, n);
    return true;
  }

  bool StartObject() { return open(); }
  bool StartArray() { return open(); }
  bool EndObject(SizeType) { return add(close_object()); }
  bool EndArray(SizeType) { return add(close_array()); }

 private:
  // Where the values (and, for an object, the member names) of an open container start.
  struct Open_Container {
    std::size_t first_value;
    std::size_t first_key;
  };

  // A member's place while its object is sorted by name. The first eight bytes of the
  // name, read as a big-endian number, decide most comparisons without a string compare.
  struct Member_Order {
    uint64_t prefix;
    uint32_t index;
  };

  bool fail(const char* reason) {
    error_ = reason;
    return false;
  }

  bool open() {
    if (open_.size() >= MAX_READ_DEPTH) return depth_exceeded();
    open_.push_back({values_.size(), keys_.size()});
    return true;
  }

  // Puts a value, built from args, where the document is at.
  template <class... Args>
  bool add(Args&&... args) {
    if (open_.empty())
      root_ = Value(std::forward<Args>(args)...);
    else
      values_.emplace_back(std::forward<Args>(args)...);
    return true;
  }

  bool depth_exceeded();
  Value close_array();
  Value close_object();
  bool order_members(const std::string* names, std::size_t n);
  bool read_real(Value& out);

  const rapidjson::StringStream& stream_;
  Value root_;
  std::vector<Open_Container> open_;
  std::vector<Value> values_;      // of all open containers, innermost last
  std::vector<std::string> keys_;  // member names of the open objects
  std::vector<Member_Order> order_;
  std::string error_;
};

}  // namespace detail
}  // namespace json_spirit
