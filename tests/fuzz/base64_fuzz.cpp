// Base64 text comes from replies and configuration. Decoding must agree between both
// outputs, fail with nothing left behind, and be stable through the encoder (only the
// decoded bytes are compared: text with stray low bits decodes like its canonical form).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/base/base64.h"
#include "tests/fuzz/quiet_log.h"

namespace {

void check_decode(const std::string& text) {
  std::vector<unsigned char> bytes{1, 2, 3};
  std::string as_string = "left over";
  const bool ok = base64_decode(text, bytes);
  if (base64_decode(text, as_string) != ok) __builtin_trap();
  if (!ok) {
    if (!bytes.empty() || !as_string.empty()) __builtin_trap();
    return;
  }
  if (std::string(bytes.begin(), bytes.end()) != as_string) __builtin_trap();
  std::string again;
  if (!base64_decode(base64_encode(as_string), again) || again != as_string) __builtin_trap();
}

void check_encode(const std::string& bytes) {
  const std::string text = base64_encode(bytes);
  if (text.size() != (bytes.size() + 2) / 3 * 4) __builtin_trap();
  if (text.find_first_of("\r\n") != std::string::npos) __builtin_trap();
  std::string back;
  if (!base64_decode(text, back) || back != bytes) __builtin_trap();
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
