#include "framework/base/hex_string.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <cctype>
#include <iterator>

namespace {

// Finds what boost::algorithm::unhex would throw about, so it can be logged with
// a position instead of caught as an exception.
bool check_hex_text(const std::string& text) {
  const auto bad = std::find_if(text.begin(), text.end(), [](char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) == 0;
  });
  if (bad != text.end()) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to decode hex text of %B characters: not a hex digit at %B.\n"),
               text.size(), static_cast<size_t>(bad - text.begin())));
    return false;
  }
  if (text.size() % 2 != 0) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to decode hex text of %B characters: odd number of digits.\n"),
               text.size()));
    return false;
  }
  return true;
}

template <class Bytes>
bool decode(const std::string& text, Bytes& bytes) {
  bytes.clear();
  if (!check_hex_text(text)) return false;
  bytes.reserve(text.size() / 2);
  try {
    boost::algorithm::unhex(text.begin(), text.end(), std::back_inserter(bytes));
  } catch (const boost::algorithm::hex_decode_error&) {
    bytes.clear();  // unreachable after the check; kept so nothing ever escapes
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

template class Hex_String_T<char>;

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
