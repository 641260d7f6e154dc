#include "framework/client_io/pool_bounds.h"

#include <limits.h>
#include <stdlib.h>

#include <memory>

namespace {

bool starts_with(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// The path with every link resolved; for a path not made yet, its deepest existing parent
// resolved and the rest appended (no "." or ".." left in it). "" when that fails.
std::string resolved(const std::string& path) {
  if (path.empty() || path[0] != '/') return "";
  std::string existing = path, rest;
  for (;;) {
    std::unique_ptr<char, decltype(&::free)> real(::realpath(existing.c_str(), nullptr), ::free);
    if (real) return std::string(real.get()) + rest;
    const auto slash = existing.rfind('/');
    if (slash == std::string::npos || existing == "/") return "";
    const std::string leaf = existing.substr(slash + 1);
    if (leaf == "." || leaf == "..") return "";
    rest = "/" + leaf + rest;
    existing = slash == 0 ? "/" : existing.substr(0, slash);
  }
}

bool inside(const std::string& path, const std::string& root) {
  if (root.empty()) return false;
  if (root == "/") return true;
  return path == root || starts_with(path, root + "/");
}

std::string check_local(const std::string& url, const Pool_Bounds& bounds) {
  const std::string path = resolved(url.substr(std::string("file://").size()));
  if (!path.empty()) {
    for (const std::string& root : bounds.local_roots)
      if (inside(path, resolved(root))) return "";
  }
  return "its url " + url + " is outside the allowed local pool roots" +
         (bounds.local_roots.empty() ? " (none are allowed)" : "");
}

}  // namespace

std::string pool_outside_bounds(const Pool_Info& info, const Pool_Bounds& bounds) {
  const std::string& url = info.url;
  if (starts_with(url, "file://")) return check_local(url, bounds);
  if (starts_with(url, "s3://")) {
    return bounds.require_tls ? "its url " + url + " is plain HTTP and the agent requires TLS (s3s://)" : "";
  }
  if (starts_with(url, "s3s://")) return "";
  return "its url " + url + " names no pool kind the agent reaches";
}
