// Where an OceanStor device manager listens and how to log in to it.
#pragma once

#include <cstdint>
#include <string>

#include "utils/agent/oceanstor/dto/auth_info.h"

namespace oceanstor {

struct Device_Manager_Info {
  uint32_t port = 0;       // used as a 16-bit TCP port
  bool ssl = false;        // true: HTTPS
  std::string host;
  std::string device_id;   // used in URLs until a login returns the array's own id
  Auth_Info auth_info;
  // PEM file of the array's certificate or of the CA that signed it (arrays mostly carry
  // certificates no public authority signed); empty: the system's trust store.
  std::string ca_file;
};

}  // namespace oceanstor
