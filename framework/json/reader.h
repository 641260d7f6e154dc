// Reading JSON text into json_spirit::Value. RapidJSON's SAX reader does the parsing;
// the values are built directly, without an intermediate DOM.
//
// The text is outside input: every function returns false on anything that is not one
// complete, well-formed JSON document (truncated text, trailing garbage, invalid UTF-8,
// bad escapes, integers beyond 64 bits, nesting deeper than MAX_READ_DEPTH) and never
// throws. `out` is written only on success.
#pragma once

#include <cstddef>
#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace json_spirit {

// Deeper documents are refused; real ones stay far below.
constexpr unsigned MAX_READ_DEPTH = 512;

AGENTUTIL_API bool read(const std::string& text, Value& out);
AGENTUTIL_API bool read(const char* text, std::size_t length, Value& out);
// `error` receives the reason of a failure, e.g.
// "JSON parse error at offset 7: Invalid escape character in string."
AGENTUTIL_API bool read(const std::string& text, Value& out, std::string& error);
AGENTUTIL_API bool read(const char* text, std::size_t length, Value& out, std::string& error);

}  // namespace json_spirit
