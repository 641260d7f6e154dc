// What a pool description from the backup server may make an agent do. The agent runs as
// root and the description comes over the network: a server that is hostile, or answers
// for one, must not choose where on this host pieces are written or turn protection off.
//
// - A directory pool (file://) is taken only at or below a local root the agent allows;
//   none is allowed by default. The path is resolved (symbolic links included) before
//   the check, so a link planted inside an allowed root cannot lead out of it.
// - With require_tls, an S3 pool must be reached over HTTPS (s3s://).
// - A description never drops the agent's own client-side encryption: a pool that says
//   it seals data itself gets both (see set_options_by_pool).
//
// Agents set the bounds in IO_Connection_Factory::Options (JSON "local_pool_roots",
// an array of directories, and "require_tls"), or through the factory's pool_bounds().
#pragma once

#include <string>
#include <vector>

#include "framework/base/api.h"
#include "framework/client_io/pool_info.h"

struct AGENTUTIL_API Pool_Bounds {
  std::vector<std::string> local_roots;
  bool require_tls = false;
};

// "" when the url of `info` keeps to `bounds`; otherwise the rule it breaks, for a line
// that names the pool, e.g. "its url file:///etc is outside the allowed local pool roots".
AGENTUTIL_API std::string pool_outside_bounds(const Pool_Info& info, const Pool_Bounds& bounds);
