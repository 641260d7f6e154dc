// Request body that removes a LUN from a lun group.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API LUN_Detach_Request {
  std::string lun_group_id;
  std::string lun_id;

  // Always succeeds.
  bool operator>>(json_spirit::Value& json) const;
};

}  // namespace oceanstor
