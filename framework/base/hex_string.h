// Hexadecimal text <-> bytes. Encoding is boost::algorithm::hex; decoding is our own, eight
// digits per step, because array bitmaps arrive as hundreds of MiB of hex text and
// boost::algorithm::unhex (an iterator and an exception check per digit) decodes ~150 MB/s.
//
// Decoding takes two digits a byte, the first the high half, upper- or lower-case.
// An odd number of digits or a character that is no hex digit is a failure: it is
// logged once at LM_ERROR (length and position only, never the text, which may be
// key material) and reported by the return value; nothing throws.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "framework/base/basic_string_arg.h"

template <class CharT>
class Hex_String_T {
 public:
  explicit Hex_String_T(Basic_String_Arg<CharT> text) : text_(text.str()) {}

  // Replaces `bytes` with the decoded text; on failure leaves it empty.
  bool get_bytes(std::vector<unsigned char>& bytes) const;
  bool get_bytes(std::string& bytes) const;
  bool get_bytes(std::basic_string<unsigned char>& bytes) const;

  const std::basic_string<CharT>& str() const { return text_; }

 private:
  std::basic_string<CharT> text_;
};

using Hex_String = Hex_String_T<char>;

// The same decoding without a copy of the text, for large texts held elsewhere.
bool hex_decode(const std::string& text, std::basic_string<unsigned char>& bytes);

enum class Hex_Case { LOWER, UPPER };

std::string hex_encode(const void* data, size_t size, Hex_Case letters = Hex_Case::LOWER);
inline std::string hex_encode(const std::string& bytes, Hex_Case letters = Hex_Case::LOWER) {
  return hex_encode(bytes.data(), bytes.size(), letters);
}
