// A LUN as the device manager describes it (one object of a LUN query reply).
#pragma once

#include <string>
#include <vector>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API LUN {
  int type = 0;
  int host_lun_id = 0;                // from "ASSOCIATEMETADATA", when the array sends it
  std::string exposed_to_initiator;   // "true" or "false"
  std::string id;
  std::string name;
  std::string wwn;
  std::string remote_lun_wwn;         // empty when the array has none
  std::string takeover_lun_wwn;       // empty when the array has none

  // Reads the LUN object `json`, or its member `prefix` when that is neither null nor
  // empty ("data" for a single-LUN reply). False, with one log line, on a missing or
  // ill-typed field; the record may then be partly filled.
  bool load(const json_spirit::Value& json, const char* prefix);
  bool operator<<(const json_spirit::Value& json) { return load(json, nullptr); }
};

// Appends the LUN objects of the reply's "data" array (other elements are skipped).
AGENTUTIL_API bool operator<<(std::vector<LUN>& luns, const json_spirit::Value& json);

}  // namespace oceanstor
