// A host the array maps LUNs to (one element of a host query's "data" array).
#pragma once

#include <string>
#include <vector>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API Host {
  int type = 0;
  std::string id;
  std::string name;
  std::string ip;
  std::string health_status;
  std::string running_status;

  // Every member is required. False, with one log line, when one is missing or ill-typed.
  bool operator<<(const json_spirit::Value& json);
};

// Appends the host objects of the reply's "data" array (other elements are skipped).
AGENTUTIL_API bool operator<<(std::vector<Host>& hosts, const json_spirit::Value& json);

}  // namespace oceanstor
