// A Fibre Channel link between a host initiator and an array target port (one element
// of a host-link query's "data" array).
#pragma once

#include <string>
#include <vector>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API Host_Link {
  int type = 0;
  std::string id;
  std::string initiator_id;
  std::string initiator_port_wwn;
  std::string initiator_type;
  std::string target_id;
  std::string target_port_wwn;
  std::string target_type;
  std::string health_status;   // "1": normal
  std::string running_status;  // "10": link up, "27": online

  // Every member is required. False, with one log line, when one is missing or ill-typed.
  bool operator<<(const json_spirit::Value& json);
};

// Appends the healthy running links of the reply's "data" array (HEALTHSTATUS "1",
// RUNNINGSTATUS "10" or "27"); the others are dropped without failing. An element that does not read stops the list: false, earlier links stay.
AGENTUTIL_API bool operator<<(std::vector<Host_Link>& links, const json_spirit::Value& json);

}  // namespace oceanstor
