// Keeping the backup server informed about the instances this agent manages, and
// reading what it knows of one. Each call is one request on the process-wide
// upstream REST client; false means it failed and one line was logged.
#pragma once

#include <vector>

#include "framework/base/api.h"
#include "framework/json/value.h"
#include "utils/agent/instance.h"

// Registers locally, then on the server; a refused post undoes the local step.
AGENTUTIL_API bool add_instance(std::shared_ptr<const Instance> instance);
// Replaces the instance's "extended_attrs" on the server with `attrs` (an object).
AGENTUTIL_API bool update_instance(std::shared_ptr<const Instance> instance,
                                   const json_spirit::Object& attrs);
AGENTUTIL_API bool remove_resource(std::shared_ptr<const Instance> instance);
// Removes on the server, then locally; a refused delete leaves the local registry alone.
AGENTUTIL_API bool remove_instance(std::shared_ptr<const Instance> instance);
// The "instances" array of the server's first resource row for `uuid`; `out` is
// written only on success.
AGENTUTIL_API bool get_instance_info(const char* uuid, std::vector<json_spirit::Value>& out);
