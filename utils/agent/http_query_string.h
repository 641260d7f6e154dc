// Percent-encoding and the query-string builder used by every backup-server request
// that carries a query.
//
//   std::string query;
//   HTTP_Query_String_Builder builder(query);
//   builder("instance_uuid", uuid);          // "instance_uuid=<uuid, encoded>"
//   builder("feature", "backup");            // "...&feature=backup"
#pragma once

#include <iterator>
#include <string>

#include "framework/base/api.h"

// Flags of http_encode_string_i: which bytes go out unescaped (or how).
enum HTTP_Encode_Flag : unsigned {
  HTTP_ENCODE_SLASH = 0x1,        // escape "/" (copied otherwise)
  HTTP_ENCODE_SPACE_PLUS = 0x2,   // a space becomes "+"
  HTTP_ENCODE_UPPER_HEX = 0x4,    // "%2F" rather than "%2f"
  HTTP_KEEP_COLON = 0x8,
  HTTP_KEEP_LPAREN = 0x10,
  HTTP_KEEP_RPAREN = 0x20,
  HTTP_KEEP_APOSTROPHE = 0x40,
  HTTP_KEEP_ASTERISK = 0x80,
  HTTP_KEEP_EXCLAMATION = 0x200,
  HTTP_KEEP_HASH = 0x400,
  HTTP_KEEP_DOLLAR = 0x800,
  HTTP_KEEP_AMPERSAND = 0x1000,
  HTTP_KEEP_PLUS = 0x2000,
  HTTP_KEEP_COMMA = 0x4000,
  HTTP_KEEP_SEMICOLON = 0x8000,
  HTTP_KEEP_EQUALS = 0x10000,
  HTTP_KEEP_QUESTION = 0x20000,
  HTTP_KEEP_AT = 0x40000,
};

// What every query value of the backup-server requests uses: "/" escaped, space as
// "+", lower-case hex digits.
constexpr unsigned HTTP_QUERY_ENCODE_FLAGS = HTTP_ENCODE_SLASH | HTTP_ENCODE_SPACE_PLUS;

// Appends `text`, percent-encoded under `flags`, to `out`. False (nothing written)
// for a null or empty text.
AGENTUTIL_API bool http_encode_string_i(const char* text, unsigned flags, std::string& out);

template <class Output_Iterator>
bool http_encode_string_i(const char* text, unsigned flags, Output_Iterator out) {
  std::string encoded;
  if (!http_encode_string_i(text, flags, encoded)) return false;
  for (char c : encoded) *out++ = c;
  return true;
}

// Adds "name=value" parameters to a query text through an output iterator, with
// "&" between them. It starts as if a parameter was already written when the
// target already holds text.
template <class Output_Iterator>
class HTTP_Query_String_Builder_T {
 public:
  HTTP_Query_String_Builder_T(Output_Iterator out, bool written) : out_(out), written_(written) {}

  // A null or empty name adds nothing. A null value gives a bare name, an empty
  // one "name=".
  void operator()(const char* name, const char* value, bool encode_name = true,
                  bool encode_value = true, const char* name_prefix = nullptr) {
    if (name == nullptr || *name == '\0') return;
    if (written_) *out_++ = '&';
    written_ = true;
    put(name_prefix, encode_name);
    put(name, encode_name);
    if (value == nullptr) return;
    *out_++ = '=';
    put(value, encode_value);
  }

 private:
  void put(const char* text, bool encode) {
    if (text == nullptr || *text == '\0') return;
    if (encode) {
      http_encode_string_i(text, HTTP_QUERY_ENCODE_FLAGS, out_);
      return;
    }
    for (const char* p = text; *p != '\0'; ++p) *out_++ = *p;
  }

  Output_Iterator out_;
  bool written_;
};

// The usual form: appending to a string.
class AGENTUTIL_API HTTP_Query_String_Builder
    : public HTTP_Query_String_Builder_T<std::back_insert_iterator<std::string>> {
 public:
  explicit HTTP_Query_String_Builder(std::string& target)
      : HTTP_Query_String_Builder_T(std::back_inserter(target), !target.empty()) {}
};
