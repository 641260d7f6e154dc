// The body that adds an object to a lun group or removes it from one
// (POST and DELETE on .../lungroup/associate).
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

// Replaces `out` by {"ASSOCIATEOBJID": object_id, "ASSOCIATEOBJTYPE": object_type,
// "ID": lun_group_id}; the type is a JSON integer, the ids stay strings.
AGENTUTIL_API void write_lungroup_association(json_spirit::Value& out,
                                              const std::string& lun_group_id, int object_type,
                                              const std::string& object_id);

}  // namespace oceanstor
