#include "utils/agent/ceph/uri_components.h"

namespace ceph {

const std::regex RBD_URI_REGEX(
    "(?:ceph://)?([a-zA-Z0-9_.-]+)/([a-zA-Z0-9_.-]+)(?:@([a-zA-Z0-9_.-]+))?",
    std::regex::ECMAScript);

URI_Components::URI_Components(const std::string& uri) {
  // Measured as to_uri() would print it, so every accepted URI prints back parseable.
  const bool has_scheme = uri.compare(0, 7, "ceph://") == 0;
  if (uri.size() + (has_scheme ? 0 : 7) > RBD_URI_MAX_LENGTH) return;
  std::smatch match;
  if (!std::regex_match(uri, match, RBD_URI_REGEX)) return;
  if (match.size() == 4) snap = match[3].str();
  pool = match[1].str();
  img = match[2].str();
  type = snap.empty() ? IMAGE : SNAPSHOT;
}

std::string URI_Components::to_uri() const {
  switch (type) {
    case IMAGE:
      return "ceph://" + pool + "/" + img;
    case SNAPSHOT:
      return "ceph://" + pool + "/" + img + "@" + snap;
    default:
      return std::string();
  }
}

}  // namespace ceph
