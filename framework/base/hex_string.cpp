#include "framework/base/hex_string.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace {

// Digit values 0-15 for the tail and for the error message; every other character maps to
// a value with bit 4 set, so one OR over the digits tells whether any was foreign.
constexpr unsigned char NOT_HEX = 0x10;

struct Digit_Table {
  unsigned char value[256];
  constexpr Digit_Table() : value{} {
    for (int c = 0; c < 256; ++c) value[c] = NOT_HEX;
    for (int d = 0; d < 10; ++d) value['0' + d] = static_cast<unsigned char>(d);
    for (int d = 0; d < 6; ++d) {
      value['a' + d] = static_cast<unsigned char>(10 + d);
      value['A' + d] = static_cast<unsigned char>(10 + d);
    }
  }
};
constexpr Digit_Table DIGITS;

constexpr uint64_t ONES = 0x0101010101010101ULL;
constexpr uint64_t HIGH_BITS = 0x80 * ONES;

// Eight digits (the first in the lowest byte) to four bytes in `out`, eight lanes at a time.
// Each byte's range tests borrow nothing from its neighbour because every byte is below 0x80
// once the high bits were checked. False when any of the eight is no hex digit.
bool decode_eight(uint64_t digits, unsigned char* out) {
  if (digits & HIGH_BITS) return false;
  const uint64_t at_least_0 = digits + (0x80 - '0') * ONES;
  const uint64_t at_most_9 = (0x80 + '9') * ONES - digits;
  const uint64_t folded = digits | 0x20 * ONES;  // 'A'-'F' to 'a'-'f'
  const uint64_t at_least_a = folded + (0x80 - 'a') * ONES;
  const uint64_t at_most_f = (0x80 + 'f') * ONES - folded;
  const uint64_t valid = (at_least_0 & at_most_9) | (at_least_a & at_most_f);
  if ((valid & HIGH_BITS) != HIGH_BITS) return false;
  // '0'-'9' keep their low nibble; letters have bit 6 set and low nibble 1-6: add 9.
  const uint64_t nibbles = (digits & 0x0F * ONES) + 9 * ((digits >> 6) & ONES);
  // Pairs (high, low) into 16-bit lanes, then the four lane bytes together.
  uint64_t packed = ((nibbles & 0x00FF00FF00FF00FFULL) << 4) | ((nibbles >> 8) & 0x00FF00FF00FF00FFULL);
  packed = (packed | packed >> 8) & 0x0000FFFF0000FFFFULL;
  packed = (packed | packed >> 16) & 0xFFFFFFFFULL;
  const uint32_t bytes = static_cast<uint32_t>(packed);
  std::memcpy(out, &bytes, 4);
  return true;
}

// Decodes `count` bytes from 2 * count digits; false when a character is no hex digit.
// Sixteen '0' digits at once are the common case of a sparse bitmap and are only compared.
bool decode_digits(const unsigned char* text, size_t count, unsigned char* out) {
  size_t i = 0;
  if (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__) {
    constexpr uint64_t ZERO_DIGITS = '0' * ONES;
    for (; i + 8 <= count; i += 8, text += 16) {
      uint64_t first, second;
      std::memcpy(&first, text, 8);
      std::memcpy(&second, text + 8, 8);
      if (first == ZERO_DIGITS && second == ZERO_DIGITS) {
        std::memset(out + i, 0, 8);
      } else if (!decode_eight(first, out + i) || !decode_eight(second, out + i + 4)) {
        return false;
      }
    }
  }
  unsigned seen = 0;
  for (; i < count; ++i, text += 2) {
    const unsigned high = DIGITS.value[text[0]];
    const unsigned low = DIGITS.value[text[1]];
    seen |= high | low;
    out[i] = static_cast<unsigned char>(high << 4 | low);
  }
  return (seen & NOT_HEX) == 0;
}

// Logs why `text` cannot be decoded: the first foreign character, else the odd length.
void log_hex_failure(const std::string& text) {
  const auto bad = std::find_if(text.begin(), text.end(), [](char c) {
    return DIGITS.value[static_cast<unsigned char>(c)] == NOT_HEX;
  });
  if (bad != text.end()) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to decode hex text of %B characters: not a hex digit at %B.\n"),
               text.size(), static_cast<size_t>(bad - text.begin())));
  } else {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to decode hex text of %B characters: odd number of digits.\n"),
               text.size()));
  }
}

template <class Bytes>
bool decode(const std::string& text, Bytes& bytes) {
  bytes.clear();
  const size_t count = text.size() / 2;
  bytes.resize(count);
  const auto* digits = reinterpret_cast<const unsigned char*>(text.data());
  auto* out = reinterpret_cast<unsigned char*>(bytes.data());
  if (text.size() % 2 != 0 || !decode_digits(digits, count, out)) {
    bytes.clear();
    log_hex_failure(text);
    return false;
  }
  return true;
}

}  // namespace

template <class CharT>
bool Hex_String_T<CharT>::get_bytes(std::vector<unsigned char>& bytes) const {
  return decode(text_, bytes);
}

template <class CharT>
bool Hex_String_T<CharT>::get_bytes(std::string& bytes) const {
  return decode(text_, bytes);
}

template <class CharT>
bool Hex_String_T<CharT>::get_bytes(std::basic_string<unsigned char>& bytes) const {
  return decode(text_, bytes);
}

template class Hex_String_T<char>;

bool hex_decode(const std::string& text, std::basic_string<unsigned char>& bytes) {
  return decode(text, bytes);
}

std::string hex_encode(const void* data, size_t size, Hex_Case letters) {
  const auto* begin = static_cast<const unsigned char*>(data);
  std::string out;
  if (begin == nullptr) return out;
  out.reserve(size * 2);
  if (letters == Hex_Case::UPPER)
    boost::algorithm::hex(begin, begin + size, std::back_inserter(out));
  else
    boost::algorithm::hex_lower(begin, begin + size, std::back_inserter(out));
  return out;
}
