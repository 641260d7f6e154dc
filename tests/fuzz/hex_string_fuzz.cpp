// Hex text comes from array replies (bitmaps) and configuration (keys). Decoding must
// agree between both outputs, fail with nothing left behind, and invert the encoder.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/base/hex_string.h"
#include "tests/fuzz/quiet_log.h"

namespace {

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

void check_decode(const std::string& text) {
  std::vector<unsigned char> bytes{1, 2, 3};
  std::string as_string = "left over";
  const Hex_String hex(text);
  const bool ok = hex.get_bytes(bytes);
  if (hex.get_bytes(as_string) != ok) __builtin_trap();
  const bool valid = text.size() % 2 == 0 && std::all_of(text.begin(), text.end(), [](char c) {
                       return std::isxdigit(static_cast<unsigned char>(c)) != 0;
                     });
  if (ok != valid) __builtin_trap();
  if (!ok) {
    if (!bytes.empty() || !as_string.empty()) __builtin_trap();
    return;
  }
  if (text.size() % 2 != 0 || bytes.size() != text.size() / 2) __builtin_trap();
  if (std::string(bytes.begin(), bytes.end()) != as_string) __builtin_trap();
  if (hex_encode(as_string) != lower(text)) __builtin_trap();
  if (lower(hex_encode(as_string, Hex_Case::UPPER)) != lower(text)) __builtin_trap();
}

void check_encode(const std::string& bytes) {
  for (const Hex_Case letters : {Hex_Case::LOWER, Hex_Case::UPPER}) {
    const std::string text = hex_encode(bytes, letters);
    std::string back;
    if (text.size() != 2 * bytes.size() || !Hex_String(text).get_bytes(back) || back != bytes)
      __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  au_fuzz::quiet_log();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  check_decode(input);
  check_encode(input);
  return 0;
}
