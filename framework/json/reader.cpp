#include "framework/json/reader.h"

#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "framework/json/rapidjson_setup.h"
#include "framework/json/value_builder.h"
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

namespace json_spirit {

namespace {

using rapidjson::SizeType;

constexpr unsigned PARSE_FLAGS = rapidjson::kParseDefaultFlags;

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
  detail::Value_Builder builder(stream);
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
