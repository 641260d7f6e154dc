// Waiting for the sandbox's daemons to go quiet before a timed run. A deleted S3 object
// is collected by the gateway seconds later, and that work would otherwise fall on
// whichever side runs next.
#pragma once

#include <functional>
#include <string>

namespace cephbench {

// Returns once the daemons of the sandbox whose conf is `conf` (pid files in its run/)
// have used under 3% of a core for a whole second, or after a minute regardless.
void wait_until_quiet(const std::string& conf);

// One timed run: `before` off the clock, then `f` once the cluster is quiet again (the OSD
// goes on working for a while after an image is removed or written), then the image
// `pool`/`target` removed. Milliseconds of `f`, or -1 when either failed.
double timed_run(const std::string& conf, const std::string& pool, const std::string& target,
                 const std::function<bool()>& before, const std::function<bool()>& f);

}  // namespace cephbench
