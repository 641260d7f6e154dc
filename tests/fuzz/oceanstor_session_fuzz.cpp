// The session token is cut out of the array's Set-Cookie header. What comes back must
// be one whole ';'-separated piece of the header that starts with "session"; a header
// without one must leave the previous token alone.
#include <cstddef>
#include <cstdint>
#include <string>

#include "utils/agent/oceanstor/oceanstor_client.h"

using oceanstor::OceanStor_Client;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string cookie(reinterpret_cast<const char*>(data), size);
  const std::string before = "previous token";
  std::string session = before;
  if (!OceanStor_Client::parse_session(cookie, session)) {
    if (session != before) __builtin_trap();
    return 0;
  }
  if (session.compare(0, 7, "session") != 0 || session.find(';') != std::string::npos) __builtin_trap();
  const std::string framed = ";" + cookie + ";";
  if (framed.find(";" + session + ";") == std::string::npos) __builtin_trap();
  return 0;
}
