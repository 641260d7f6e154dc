// Request body that removes a snapshot from a lun group.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API Snapshot_Detach_Request {
  std::string lun_group_id;
  std::string snap_id;

  // Always succeeds.
  bool operator>>(json_spirit::Value& json) const;
};

}  // namespace oceanstor
