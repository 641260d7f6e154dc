#include "framework/base/base64.h"

#include <ace/Codecs.h>
#include <ace/Log_Msg.h>

#include <cctype>
#include <cstring>
#include <memory>

namespace {

// ACE_Base64 fills its tables on first use without a lock; one call under the
// guard of a function-local static makes every later call read-only.
void prime_ace_tables() {
  static const bool primed = [] {
    size_t len = 0;
    delete[] ACE_Base64::encode(reinterpret_cast<const ACE_Byte*>(""), 0, &len, false);
    return true;
  }();
  (void)primed;
}

bool is_alphabet(unsigned char c) { return std::isalnum(c) || c == '+' || c == '/'; }

bool reject(const char* why, size_t length, size_t at) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to decode Base64 text of %B characters: %C at %B.\n"),
             length, why, at));
  return false;
}

bool check_base64_text(const char* text, size_t length) {
  size_t symbols = 0;
  size_t padding = 0;
  for (size_t i = 0; i < length; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (std::isspace(c)) continue;
    if (c == '=') {
      if (++padding > 2) return reject("too much padding", length, i);
    } else if (!is_alphabet(c)) {
      return reject("not a Base64 character", length, i);
    } else if (padding > 0) {
      return reject("data after padding", length, i);
    }
    ++symbols;
  }
  if (symbols % 4 != 0) return reject("incomplete group", length, length);
  return true;
}

using Ace_Bytes = std::unique_ptr<ACE_Byte[]>;

template <class Bytes>
bool decode(Basic_String_Arg<char> text, Bytes& bytes) {
  bytes.clear();
  if (!check_base64_text(text.c_str(), text.size())) return false;
  if (text.empty()) return true;
  prime_ace_tables();
  size_t size = 0;
  const Ace_Bytes out(ACE_Base64::decode(reinterpret_cast<const ACE_Byte*>(text.c_str()), &size));
  if (!out) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to decode Base64 text of %B characters.\n"),
               text.size()));
    return false;
  }
  bytes.assign(out.get(), out.get() + size);
  return true;
}

}  // namespace

std::string base64_encode(const void* data, size_t size) {
  if (data == nullptr || size == 0) return std::string();
  prime_ace_tables();
  size_t length = 0;
  const Ace_Bytes out(
      ACE_Base64::encode(static_cast<const ACE_Byte*>(data), size, &length, false));
  if (!out) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to encode %B bytes as Base64.\n"), size));
    return std::string();
  }
  return std::string(reinterpret_cast<const char*>(out.get()), length);
}

bool base64_decode(Basic_String_Arg<char> text, std::vector<unsigned char>& bytes) {
  return decode(text, bytes);
}

bool base64_decode(Basic_String_Arg<char> text, std::string& bytes) {
  return decode(text, bytes);
}
