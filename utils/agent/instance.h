// A protected instance as an agent manages it: shared and immutable once made.
#pragma once

#include <memory>
#include <string>

#include "framework/json/value.h"

struct Instance {
  using options_type = json_spirit::Object;
  using logon_type = json_spirit::Object;

  std::string type;
  std::string name;
  std::string uuid;
  options_type options;       // sent to the backup server as "extended_attrs"
  logon_type logon_options;   // kept locally, never sent
};

using Instance_Ptr = std::shared_ptr<const Instance>;
