#include "framework/json/utf8.h"

#include "framework/json/rapidjson_setup.h"
#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>

namespace json_spirit {

namespace {

// Output stream for rapidjson::UTF8<>::Validate that drops what it is given.
struct Discard {
  typedef char Ch;
  void Put(char) {}
};

struct Append {
  typedef char Ch;
  std::string& out;
  void Put(char c) { out.push_back(c); }
};

}  // namespace

bool detail::is_valid_utf8_from(const char* s, std::size_t n) {
  rapidjson::MemoryStream in(s, n);
  Discard sink;
  while (in.Tell() < n) {
    if (!rapidjson::UTF8<>::Validate(in, sink)) return false;
  }
  return true;
}

std::string to_valid_utf8(const char* s, std::size_t n) {
  static const char REPLACEMENT[] = "\xEF\xBF\xBD";
  std::string out;
  out.reserve(n + 8);
  Append sink{out};
  std::size_t i = 0;
  while (i < n) {
    rapidjson::MemoryStream in(s + i, n - i);
    const std::size_t kept = out.size();
    if (rapidjson::UTF8<>::Validate(in, sink)) {
      i += in.Tell();
    } else {
      out.resize(kept);
      out += REPLACEMENT;
      ++i;
    }
  }
  return out;
}

}  // namespace json_spirit
