#include "framework/json/reader.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "framework/json/rapidjson_setup.h"
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

namespace json_spirit {

namespace {

using rapidjson::SizeType;

// RapidJSON validates UTF-8 but turns a lone low-surrogate escape (\uDC00) into the
// bytes ED B0 80, which are not UTF-8. Those are refused here so that nothing read can
// be written back as invalid text.
bool has_encoded_surrogate(const char* s, SizeType n) {
  const void* p = std::memchr(s, 0xED, n);
  while (p) {
    const char* ed = static_cast<const char*>(p);
    const std::size_t at = static_cast<std::size_t>(ed - s);
    if (at + 1 < n && (static_cast<unsigned char>(ed[1]) & 0xE0) == 0xA0) return true;
    p = std::memchr(ed + 1, 0xED, n - at - 1);
  }
  return false;
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
  Value& root() { return root_; }
  const std::string& error() const { return error_; }

  bool Null() { return add(Value()); }
  bool Bool(bool b) { return add(Value(b)); }
  // RawNumber receives every number (kParseNumbersAsStringsFlag), so these stay unused.
  bool Int(int i) { return add(Value(i)); }
  bool Uint(unsigned u) { return add(Value(u)); }
  bool Int64(int64_t i) { return add(Value(i)); }
  bool Uint64(uint64_t u) { return add(Value(u)); }
  bool Double(double d) { return add(Value(d)); }

  bool RawNumber(const char* s, SizeType n, bool) {
    Value number;
    if (!parse_number(s, s + n, number)) return false;
    return add(std::move(number));
  }

  bool String(const char* s, SizeType n, bool) {
    if (has_encoded_surrogate(s, n)) return fail("Lone surrogate escape in string.");
    return add(Value(std::string(s, n)));
  }

  bool Key(const char* s, SizeType n, bool) {
    if (has_encoded_surrogate(s, n)) return fail("Lone surrogate escape in member name.");
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

  bool parse_number(const char* s, const char* end, Value& out) {
    const bool negative = *s == '-';
    const char* p = s + negative;
    uint64_t magnitude = 0;
    bool overflow = false;
    for (; p < end; ++p) {
      const unsigned digit = static_cast<unsigned>(*p - '0');
      if (digit > 9) break;
      if (magnitude > (std::numeric_limits<uint64_t>::max() - digit) / 10) overflow = true;
      magnitude = magnitude * 10 + digit;
    }
    if (p == end) {  // an integer literal
      if (overflow || (negative && magnitude > (uint64_t{1} << 63)))
        return fail("Integer does not fit in 64 bits.");
      if (negative)
        out = Value(static_cast<int64_t>(~magnitude + 1));
      else
        out = Value(magnitude);
      return true;
    }
    double d = 0;
    const auto r = std::from_chars(s, end, d);
    if (r.ec == std::errc::result_out_of_range) {
      if (decimal_magnitude(s, end) > 0) return fail("Number too big to be stored in double.");
      d = negative ? -0.0 : 0.0;
    } else if (r.ec != std::errc() || r.ptr != end) {
      return fail("Invalid number.");
    }
    out = Value(d);
    return true;
  }

  Value root_;
  std::vector<Value*> open_;
  std::string key_;
  std::string error_;
};

constexpr unsigned PARSE_FLAGS = rapidjson::kParseValidateEncodingFlag |
                                 rapidjson::kParseNumbersAsStringsFlag;

std::string parse_error_text(const rapidjson::ParseResult& r, const std::string& handler_error) {
  const char* reason = r.Code() == rapidjson::kParseErrorTermination && !handler_error.empty()
                           ? handler_error.c_str()
                           : rapidjson::GetParseError_En(r.Code());
  return "JSON parse error at offset " + std::to_string(r.Offset()) + ": " + reason;
}

template <class Stream>
bool parse(Stream& stream, std::size_t length, Value& out, std::string& error) {
  // RapidJSON reads a NUL byte as the end of the text; one inside would hide what follows.
  const char* begin = stream.src_;
  if (const void* nul = std::memchr(begin, '\0', length)) {
    error = "JSON parse error at offset " +
            std::to_string(static_cast<const char*>(nul) - begin) + ": NUL byte in text.";
    return false;
  }
  Value_Builder builder;
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
    if (nul_terminated) {  // the fast stream stops at the terminating NUL
      rapidjson::StringStream stream(text);
      return parse(stream, length, out, error);
    }
    rapidjson::MemoryStream stream(text, length);
    return parse(stream, length, out, error);
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
