// UTF-8 checks for text the writer emits: a string built in memory (a file name read
// from disk, say) may hold bytes that are not UTF-8, and JSON text must be.
#pragma once

#include <string>

namespace json_spirit {

bool is_valid_utf8(const char* s, std::size_t n);
// `s` with every byte that does not start a valid sequence replaced by U+FFFD.
std::string to_valid_utf8(const char* s, std::size_t n);

}  // namespace json_spirit
