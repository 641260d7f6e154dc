#include "framework/json/reader.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "framework/json/rapidjson_setup.h"
#include "framework/json/utf8.h"
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

namespace json_spirit {

namespace {

using rapidjson::SizeType;

// RapidJSON copies string bytes as they stand (its own validation would also switch off
// its SIMD scanning), so each decoded string is checked here. That also catches a lone
// low-surrogate escape (\uDC00), which RapidJSON decodes to the non-UTF-8 bytes ED B0 80.
const char* utf8_error(const char* s, SizeType n, bool key) {
  if (is_valid_utf8(s, n)) return nullptr;
  return key ? "Invalid encoding in member name." : "Invalid encoding in string.";
}

const std::string& depth_error() {
  static const std::string text =
      "Nesting deeper than " + std::to_string(MAX_READ_DEPTH) + " levels.";
  return text;
}

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

// SAX handler that builds the Value in place: each open container lives in its parent
// (or is the root) and is reached through a pointer, so finished children are never moved.
class Value_Builder {
 public:
  explicit Value_Builder(const rapidjson::StringStream& stream) : stream_(stream) {}
  Value& root() { return root_; }
  const std::string& error() const { return error_; }

  bool Null() { return add(Value()); }
  bool Bool(bool b) { return add(Value(b)); }
  bool Int(int i) { return add(Value(i)); }
  bool Uint(unsigned u) { return add(Value(u)); }
  bool Int64(int64_t i) { return add(Value(i)); }
  bool Uint64(uint64_t u) { return add(Value(u)); }
  bool Double(double) {
    Value number;
    if (!read_real(number)) return false;
    return add(std::move(number));
  }
  bool RawNumber(const char*, SizeType, bool) { return fail("Unexpected raw number."); }

  bool String(const char* s, SizeType n, bool) {
    if (const char* bad = utf8_error(s, n, false)) return fail(bad);
    return add(Value(std::string(s, n)));
  }

  bool Key(const char* s, SizeType n, bool) {
    if (const char* bad = utf8_error(s, n, true)) return fail(bad);
    key_.assign(s, n);
    return true;
  }

  bool StartObject() { return open(Value(Object())); }
  bool StartArray() { return open(Value(Array())); }
  bool EndObject(SizeType) { return close(); }
  bool EndArray(SizeType) { return close(); }

 private:
  bool fail(const char* reason) {
    error_ = reason;
    return false;
  }

  bool open(Value&& container) {
    if (open_.size() >= MAX_READ_DEPTH)
      return fail(depth_error().c_str());
    Value* slot = place(std::move(container));
    open_.push_back(slot);
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  bool add(Value&& v) {
    place(std::move(v));
    return true;
  }

  // Puts v where the document is at and returns where it landed. Repeated member names:
  // the last one wins, as in JavaScript.
  Value* place(Value&& v) {
    if (open_.empty()) {
      root_ = std::move(v);
      return &root_;
    }
    Value& parent = *open_.back();
    if (parent.type() == array_type) {
      Array& a = parent.get_array();
      a.emplace_back(std::move(v));
      return &a.back();
    }
    Object& o = parent.get_obj();
    // Members usually arrive sorted (our own writer sorts them): then the hint is exact.
    auto it = o.insert_or_assign(o.end(), std::move(key_), std::move(v));
    return &it->second;
  }

  // RapidJSON hands over integers beyond 64 bits as doubles, and its own double
  // conversion is not always the nearest one. So a double is taken again from its text:
  // the caller's stream still points at the start of the number while RapidJSON reads
  // it through a local copy (StreamLocalCopy), so the text is at stream_.src_.
  bool read_real(Value& out) {
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

  static bool is_digit(char c) { return c >= '0' && c <= '9'; }

  const rapidjson::StringStream& stream_;
  Value root_;
  std::vector<Value*> open_;
  std::string key_;
  std::string error_;
};

constexpr unsigned PARSE_FLAGS = rapidjson::kParseDefaultFlags;
static_assert(rapidjson::StreamTraits<rapidjson::StringStream>::copyOptimization,
              "Value_Builder::read_real expects RapidJSON to read numbers through a copy");

std::string parse_error_text(const rapidjson::ParseResult& r, const std::string& handler_error) {
  const char* reason = r.Code() == rapidjson::kParseErrorTermination && !handler_error.empty()
                           ? handler_error.c_str()
                           : rapidjson::GetParseError_En(r.Code());
  return "JSON parse error at offset " + std::to_string(r.Offset()) + ": " + reason;
}

// `text` has a NUL at text[length].
bool parse(const char* text, std::size_t length, Value& out, std::string& error) {
  // RapidJSON reads a NUL byte as the end of the text; one inside would hide what follows.
  if (const void* nul = std::memchr(text, '\0', length)) {
    error = "JSON parse error at offset " +
            std::to_string(static_cast<const char*>(nul) - text) + ": NUL byte in text.";
    return false;
  }
  rapidjson::StringStream stream(text);
  Value_Builder builder(stream);
  rapidjson::Reader reader;
  const rapidjson::ParseResult r = reader.Parse<PARSE_FLAGS>(stream, builder);
  if (r.IsError()) {
    error = parse_error_text(r, builder.error());
    return false;
  }
  out = std::move(builder.root());
  return true;
}

bool read_text(const char* text, std::size_t length, bool nul_terminated, Value& out,
               std::string& error) noexcept {
  try {
    if (text == nullptr) {
      error = "JSON parse error at offset 0: no text.";
      return false;
    }
    if (length >= std::numeric_limits<SizeType>::max()) {
      error = "JSON parse error at offset 0: text of " + std::to_string(length) +
              " bytes is too long.";
      return false;
    }
    if (nul_terminated) return parse(text, length, out, error);
    const std::string copy(text, length);  // the reader needs the terminating NUL
    return parse(copy.c_str(), length, out, error);
  } catch (const std::bad_alloc&) {
    error = "JSON parse error: out of memory.";
  } catch (const std::exception& e) {
    error = std::string("JSON parse error: ") + e.what();
  }
  return false;
}

}  // namespace

bool read(const std::string& text, Value& out, std::string& error) {
  return read_text(text.c_str(), text.size(), true, out, error);
}

bool read(const char* text, std::size_t length, Value& out, std::string& error) {
  return read_text(text, length, false, out, error);
}

bool read(const std::string& text, Value& out) {
  std::string error;
  return read(text, out, error);
}

bool read(const char* text, std::size_t length, Value& out) {
  std::string error;
  return read(text, length, out, error);
}

}  // namespace json_spirit
