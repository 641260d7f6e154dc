// Image and snapshot URIs come from requests: anything accepted must write back as a
// URI that parses to the same parts, and anything refused must leave no parts behind.
#include <cstddef>
#include <cstdint>
#include <string>

#include "utils/agent/ceph/uri_components.h"

using ceph::URI_Components;

namespace {

bool same_parts(const URI_Components& a, const URI_Components& b) {
  return a.type == b.type && a.pool == b.pool && a.img == b.img && a.snap == b.snap;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const URI_Components uri(text);
  if (uri.type == URI_Components::UNKNOWN) {
    if (!uri.pool.empty() || !uri.img.empty() || !uri.snap.empty() || !uri.to_uri().empty())
      __builtin_trap();
    return 0;
  }
  if (size > ceph::RBD_URI_MAX_LENGTH || uri.pool.empty() || uri.img.empty()) __builtin_trap();
  if ((uri.type == URI_Components::SNAPSHOT) == uri.snap.empty()) __builtin_trap();

  const std::string written = uri.to_uri();
  // The length limit applies to the text as given, so a URI without "ceph://" that is
  // close to it writes back too long to read again (regressions/ceph_uri-1, -2).
  if (written.size() > ceph::RBD_URI_MAX_LENGTH) return 0;
  const URI_Components again(written);
  if (!same_parts(uri, again) || again.to_uri() != written) __builtin_trap();
  return 0;
}
