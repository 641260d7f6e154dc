// Server addresses arrive as one string. A refused text must leave the previous result
// untouched; an accepted one must have its parts in the documented shape and must be
// put back together into a URL that parses to the same parts.
#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/http/uri_parser.h"
#include "tests/fuzz/quiet_log.h"

namespace {

const char* const SENTINEL = "https://sentinel.invalid:8443/kept?as=is";

bool same_parts(const URI& a, const URI& b) {
  return a.scheme() == b.scheme() && a.host(true) == b.host(true) && a.path() == b.path() &&
         a.query() == b.query();
}

std::string rebuilt(const URI& uri) {
  std::string text = uri.scheme() + "://" + uri.host(true) + uri.path();
  if (!uri.query().empty()) text += "?" + uri.query();
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  au_fuzz::quiet_log();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  URI sentinel;
  if (!URI_Parser::parse(SENTINEL, sentinel)) __builtin_trap();

  URI uri;
  if (!URI_Parser::parse(SENTINEL, uri)) __builtin_trap();
  if (!URI_Parser::parse(text.c_str(), uri)) {
    if (!same_parts(uri, sentinel) || uri.port() != sentinel.port()) __builtin_trap();
    return 0;
  }
  if (uri.scheme() != "http" && uri.scheme() != "https") __builtin_trap();
  if (uri.is_ssl() != (uri.scheme() == "https")) __builtin_trap();
  if (uri.host(false).empty() || uri.port() == 0) __builtin_trap();
  if (uri.path().empty() || uri.path()[0] != '/') __builtin_trap();

  URI again;
  if (!URI_Parser::parse(rebuilt(uri).c_str(), again) || !same_parts(uri, again)) __builtin_trap();
  return 0;
}
