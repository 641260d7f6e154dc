// Credentials for the device manager's login, written as the login request body.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API Auth_Info {
  std::string scope;
  std::string username;
  std::string password;  // never logged

  // Replaces `json` by {"password", "scope" (only when set), "username"}; always succeeds.
  // The password goes in as a secure string, so redacted dumps of the body mask it.
  bool operator>>(json_spirit::Value& json) const;
};

}  // namespace oceanstor
