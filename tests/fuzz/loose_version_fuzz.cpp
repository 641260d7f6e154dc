// Version strings come from directory and package names. Three versions are read from
// the input (split at newlines); the ordering must be a total preorder over them.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/base/loose_version.h"

namespace {

int sign(int v) { return (v > 0) - (v < 0); }

std::vector<std::string> three_lines(const std::string& text) {
  std::vector<std::string> lines(3);
  std::size_t start = 0;
  for (std::size_t i = 0; i < 3 && start <= text.size(); ++i) {
    std::size_t end = i == 2 ? std::string::npos : text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines[i] = text.substr(start, end - start);
    start = end + 1;
  }
  return lines;
}

void check_pair(const Loose_Version& a, const Loose_Version& b) {
  const int ab = a.compare(b);
  if (sign(ab) != -sign(b.compare(a))) __builtin_trap();
  if ((a == b) != (ab == 0) || (a < b) != (ab < 0) || (a > b) != (ab > 0)) __builtin_trap();
  if ((a <= b) != !(a > b) || (a >= b) != !(a < b) || (a != b) != !(a == b)) __builtin_trap();
  // Invalid versions sort below every valid one and equal each other.
  if (!a && !b && ab != 0) __builtin_trap();
  if (!a && b && ab >= 0) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string> lines = three_lines(text);
  const std::vector<Loose_Version> v{Loose_Version(lines[0]), Loose_Version(lines[1]),
                                     Loose_Version(lines[2])};
  for (std::size_t i = 0; i < 3; ++i) {
    if (v[i].compare(v[i]) != 0) __builtin_trap();
    // The text kept is what the C-string form sees: a NUL ends it even in the std::string
    // form, which then accepts "1.0\0x" as 1.0 (regressions/loose_version-1, -2).
    if (v[i] && v[i].str() != std::string(lines[i].c_str())) __builtin_trap();
    for (std::size_t j = 0; j < 3; ++j) check_pair(v[i], v[j]);
  }
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t k = 0; k < 3; ++k)
        if (v[i] <= v[j] && v[j] <= v[k] && !(v[i] <= v[k])) __builtin_trap();
  return 0;
}
