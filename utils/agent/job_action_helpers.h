// Asking the backup server for an action on a job ("cancel", "pause", ...).
#pragma once

#include "framework/base/api.h"
#include "framework/json/value.h"

using options_map = json_spirit::Object;

// POST {"action", "agent", "options"} to the job's action path. `job_def_id` goes
// into the path as it is. False, with one log line, on a refused argument or post.
AGENTUTIL_API bool job_action(const char* action, const char* agent, const char* job_def_id,
                              const options_map& options);
