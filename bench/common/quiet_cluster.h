// Waiting for the sandbox's daemons to go quiet before a timed run. A deleted S3 object
// is collected by the gateway seconds later, and that work would otherwise fall on
// whichever side runs next.
#pragma once

#include <string>

namespace cephbench {

// Returns once the daemons of the sandbox whose conf is `conf` (pid files in its run/)
// have used under 3% of a core for a whole second, or after a minute regardless.
void wait_until_quiet(const std::string& conf);

}  // namespace cephbench
