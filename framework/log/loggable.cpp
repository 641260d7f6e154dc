#include "framework/log/loggable.h"

std::string loggable(const std::string& text, std::size_t max_bytes) {
  std::string out = text.substr(0, max_bytes);
  for (char& c : out) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) c = '?';
  }
  return out;
}
