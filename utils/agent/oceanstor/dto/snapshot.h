// A LUN snapshot, read from a single-snapshot reply (fields under "/data").
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API Snapshot {
  int type = 0;
  std::string exposed_to_initiator;  // "true" or "false"
  std::string id;
  std::string name;
  std::string wwn;

  // False, with one log line, when a field is missing or ill-typed.
  bool operator<<(const json_spirit::Value& json);
};

}  // namespace oceanstor
