#include "utils/agent/http_query_string.h"

namespace {

bool always_copied(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || c == '.' || c == '~';
}

// The flag under which a punctuation byte is copied as it is; 0 for none.
unsigned keep_flag(unsigned char c) {
  switch (c) {
    case ':': return HTTP_KEEP_COLON;
    case '(': return HTTP_KEEP_LPAREN;
    case ')': return HTTP_KEEP_RPAREN;
    case '\'': return HTTP_KEEP_APOSTROPHE;
    case '*': return HTTP_KEEP_ASTERISK;
    case '!': return HTTP_KEEP_EXCLAMATION;
    case '#': return HTTP_KEEP_HASH;
    case '$': return HTTP_KEEP_DOLLAR;
    case '&': return HTTP_KEEP_AMPERSAND;
    case '+': return HTTP_KEEP_PLUS;
    case ',': return HTTP_KEEP_COMMA;
    case ';': return HTTP_KEEP_SEMICOLON;
    case '=': return HTTP_KEEP_EQUALS;
    case '?': return HTTP_KEEP_QUESTION;
    case '@': return HTTP_KEEP_AT;
    default: return 0;
  }
}

}  // namespace

bool http_encode_string_i(const char* text, unsigned flags, std::string& out) {
  if (text == nullptr || *text == '\0') return false;
  const char* digits = (flags & HTTP_ENCODE_UPPER_HEX) ? "0123456789ABCDEF" : "0123456789abcdef";
  for (const char* p = text; *p != '\0'; ++p) {
    const auto c = static_cast<unsigned char>(*p);
    const unsigned keep = keep_flag(c);
    if (always_copied(c) || (c == '/' && !(flags & HTTP_ENCODE_SLASH)) ||
        (keep != 0 && (flags & keep))) {
      out += static_cast<char>(c);
    } else if (c == ' ' && (flags & HTTP_ENCODE_SPACE_PLUS)) {
      out += '+';
    } else {
      out += '%';
      out += digits[c >> 4];
      out += digits[c & 0xf];
    }
  }
  return true;
}
