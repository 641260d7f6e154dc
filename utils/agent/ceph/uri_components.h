// Ceph image and snapshot URIs: "ceph://<pool>/<image>" and "ceph://<pool>/<image>@<snap>".
// The scheme is optional on input; names hold only letters, digits, '_', '.' and '-'
// (there is no escaping), so any other character makes the whole text UNKNOWN.
#pragma once

#include <cstddef>
#include <regex>
#include <string>

#include "framework/base/api.h"

namespace ceph {

// Pool, image and optional snapshot; compiled once for the process.
extern const std::regex RBD_URI_REGEX;

// Longer text is refused before matching: std::regex recurses once per character
// (a few hundred bytes of stack each), so unbounded input could overflow a thread's
// stack. 1 KiB leaves room for any realistic pool, image and snapshot name. The limit
// applies to the text with its "ceph://" scheme, so to_uri() of an accepted URI parses.
constexpr std::size_t RBD_URI_MAX_LENGTH = 1024;

struct AGENTUTIL_API URI_Components {
  enum Type { UNKNOWN = 0, IMAGE = 1, SNAPSHOT = 2 };

  URI_Components() = default;
  // UNKNOWN with empty parts unless the whole text matches RBD_URI_REGEX.
  explicit URI_Components(const std::string& uri);

  // "ceph://pool/img" or "ceph://pool/img@snap"; "" for UNKNOWN.
  std::string to_uri() const;

  Type type = UNKNOWN;
  std::string pool;
  std::string img;
  std::string snap;
};

}  // namespace ceph
