#include "framework/base/loose_version.h"

#include <algorithm>
#include <cctype>

namespace {

bool is_digit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }
bool is_alpha(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
bool is_separator(char c) { return c == '.' || c == '-' || c == '_' || c == '+'; }

int sign(int v) { return (v > 0) - (v < 0); }

int compare_numbers(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  return sign(a.compare(b));
}

}  // namespace

Loose_Version::Loose_Version(const char* text) : text_(text ? text : "") {
  valid_ = text != nullptr && parse(text_);
  if (!valid_) parts_.clear();
}

bool Loose_Version::parse(const std::string& text) {
  size_t at = 0;
  if (at < text.size() && (text[at] == 'v' || text[at] == 'V')) ++at;
  if (at >= text.size() || !is_digit(text[at])) return false;
  while (at < text.size()) {
    const char c = text[at];
    if (is_separator(c)) {
      ++at;
      continue;
    }
    if (!is_digit(c) && !is_alpha(c)) return false;
    const bool number = is_digit(c);
    const size_t start = at;
    while (at < text.size() && (number ? is_digit(text[at]) : is_alpha(text[at]))) ++at;
    Component part{number, text.substr(start, at - start)};
    if (number) {
      const size_t nonzero = part.text.find_first_not_of('0');
      part.text.erase(0, nonzero == std::string::npos ? part.text.size() : nonzero);
    } else {
      for (char& ch : part.text) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    }
    parts_.push_back(std::move(part));
  }
  return true;
}

int Loose_Version::compare(const Loose_Version& other) const {
  if (!valid_ || !other.valid_) return int(valid_) - int(other.valid_);
  static const Component zero{true, std::string()};
  const size_t n = std::max(parts_.size(), other.parts_.size());
  for (size_t i = 0; i < n; ++i) {
    const Component& a = i < parts_.size() ? parts_[i] : zero;
    const Component& b = i < other.parts_.size() ? other.parts_[i] : zero;
    if (a.number != b.number) return a.number ? 1 : -1;
    const int c = a.number ? compare_numbers(a.text, b.text) : sign(a.text.compare(b.text));
    if (c != 0) return c;
  }
  return 0;
}
