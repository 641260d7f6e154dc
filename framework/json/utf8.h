// UTF-8 checks for text the writer emits: a string built in memory (a file name read
// from disk, say) may hold bytes that are not UTF-8, and JSON text must be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace json_spirit {

namespace detail {
// is_valid_utf8 from the first byte that is not ASCII on.
bool is_valid_utf8_from(const char* s, std::size_t n);
}  // namespace detail

// Inline: it runs on every string read or written, and most are short and ASCII, which
// is checked here eight bytes at a time.
inline bool is_valid_utf8(const char* s, std::size_t n) {
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t word;
    std::memcpy(&word, s + i, 8);
    if (word & 0x8080808080808080ULL) return detail::is_valid_utf8_from(s + i, n - i);
  }
  for (; i < n; ++i)
    if (static_cast<unsigned char>(s[i]) >= 0x80) return detail::is_valid_utf8_from(s + i, n - i);
  return true;
}
// `s` with every byte that does not start a valid sequence replaced by U+FFFD.
std::string to_valid_utf8(const char* s, std::size_t n);

}  // namespace json_spirit
