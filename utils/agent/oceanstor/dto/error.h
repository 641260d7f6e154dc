// The "error" object the device manager puts in every reply; code 0 means success.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API Error {
  int code = 0;
  std::string description;
  std::string suggestion;

  void clear();
  // Reads "/error/code" and "/error/description" (required) and "/error/suggestion".
  // False, with one log line, when the reply has no such object or a field does not fit
  // (codes beyond int are refused, not truncated).
  bool operator<<(const json_spirit::Value& json);
};

}  // namespace oceanstor
