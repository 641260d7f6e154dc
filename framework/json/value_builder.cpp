#include "framework/json/value_builder.h"

#include <algorithm>
#include <charconv>

namespace json_spirit {
namespace detail {

namespace {

// Decimal magnitude of a JSON number text, roughly: its sign tells an overflowing real
// from an underflowing one.
long decimal_magnitude(const char* s, const char* end) {
  if (*s == '-') ++s;
  long magnitude = 0;
  const char* p = s;
  while (p < end && *p >= '0' && *p <= '9') ++p;
  if (!(p - s == 1 && *s == '0')) {
    magnitude = p - s;
  } else if (p < end && *p == '.') {
    ++p;
    while (p < end && *p == '0') { --magnitude; ++p; }
  }
  const char* e = p;
  while (e < end && *e != 'e' && *e != 'E') ++e;
  if (e < end) {
    long exponent = 0;
    std::from_chars(e + 1 + (e[1] == '+'), end, exponent);
    magnitude += exponent;
  }
  return magnitude;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

uint64_t name_prefix(const std::string& name) {
  uint64_t prefix = 0;
  for (std::size_t i = 0; i < 8; ++i)
    prefix = prefix << 8 | (i < name.size() ? static_cast<unsigned char>(name[i]) : 0u);
  return prefix;
}

}  // namespace

bool Value_Builder::depth_exceeded() {
  static const std::string text =
      "Nesting deeper than " + std::to_string(MAX_READ_DEPTH) + " levels.";
  return fail(text.c_str());
}

Value Value_Builder::close_array() {
  const std::size_t first = open_.back().first_value;
  open_.pop_back();
  Value array{Array()};
  Array& a = array.get_array();
  a.reserve(values_.size() - first);
  for (std::size_t i = first; i < values_.size(); ++i) a.emplace_back(std::move(values_[i]));
  values_.resize(first);
  return array;
}

Value Value_Builder::close_object() {
  const Open_Container c = open_.back();
  open_.pop_back();
  std::string* names = keys_.data() + c.first_key;
  Value* values = values_.data() + c.first_value;
  const bool may_repeat = order_members(names, values_.size() - c.first_value);
  Value object{Object()};
  Object& o = object.get_obj();
  for (std::size_t j = 0; j < order_.size(); ++j) {
    const uint32_t i = order_[j].index;
    // Of repeated member names the last one wins, as in JavaScript; sorting kept them in
    // document order.
    if (may_repeat && j + 1 < order_.size() && order_[j].prefix == order_[j + 1].prefix &&
        names[i] == names[order_[j + 1].index])
      continue;
    o.emplace_hint(o.end(), std::move(names[i]), std::move(values[i]));
  }
  keys_.resize(c.first_key);
  values_.resize(c.first_value);
  return object;
}

// Leaves in order_ the positions of the n members named names[0..n) sorted by name, those
// of the same name in document order. Returns false when the names came strictly sorted
// (then none repeats).
bool Value_Builder::order_members(const std::string* names, std::size_t n) {
  const auto before = [names](const Member_Order& a, const Member_Order& b) {
    if (a.prefix != b.prefix) return a.prefix < b.prefix;
    return names[a.index] < names[b.index];
  };
  order_.resize(n);
  bool sorted = true;
  for (std::size_t i = 0; i < n; ++i) {
    order_[i] = {name_prefix(names[i]), static_cast<uint32_t>(i)};
    if (i > 0 && sorted) sorted = before(order_[i - 1], order_[i]);
  }
  if (sorted) return false;
  std::sort(order_.begin(), order_.end(), [&before](const Member_Order& a, const Member_Order& b) {
    if (before(a, b)) return true;
    return !before(b, a) && a.index < b.index;
  });
  return true;
}

// RapidJSON hands over integers beyond 64 bits as doubles, and its own double conversion
// is not always the nearest one. So a double is taken again from its text: the caller's
// stream still points at the start of the number while RapidJSON reads it through a local
// copy (StreamLocalCopy), so the text is at stream_.src_.
static_assert(rapidjson::StreamTraits<rapidjson::StringStream>::copyOptimization,
              "Value_Builder::read_real expects RapidJSON to read numbers through a copy");

bool Value_Builder::read_real(Value& out) {
  const char* s = stream_.src_;
  const char* p = s + (*s == '-');
  while (is_digit(*p)) ++p;
  if (*p != '.' && *p != 'e' && *p != 'E') return fail("Integer does not fit in 64 bits.");
  if (*p == '.')
    for (++p; is_digit(*p);) ++p;
  if (*p == 'e' || *p == 'E') {
    ++p;
    if (*p == '+' || *p == '-') ++p;
    while (is_digit(*p)) ++p;
  }
  double d = 0;
  const auto r = std::from_chars(s, p, d);
  if (r.ec == std::errc::result_out_of_range) {
    if (decimal_magnitude(s, p) > 0) return fail("Number too big to be stored in double.");
    d = *s == '-' ? -0.0 : 0.0;
  } else if (r.ec != std::errc() || r.ptr != p) {
    return fail("Invalid number.");
  }
  out = Value(d);
  return true;
}

}  // namespace detail
}  // namespace json_spirit
