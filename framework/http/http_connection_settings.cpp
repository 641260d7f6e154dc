#include "framework/http/http_connection_settings.h"

std::string HTTP_Connection_Settings::base_url() const {
  const bool v6 = host.find(':') != std::string::npos;
  std::string url = ssl ? "https://" : "http://";
  url += v6 ? "[" + host + "]" : host;
  url += ":" + std::to_string(port);
  return url;
}

bool HTTP_Connection_Settings::same_endpoint(const HTTP_Connection_Settings& other) const {
  return host == other.host && port == other.port && ssl == other.ssl &&
         verify_peer == other.verify_peer && ca_file == other.ca_file;
}

bool HTTP_Connection_Settings::operator==(const HTTP_Connection_Settings& other) const {
  return same_endpoint(other) && keep_alive == other.keep_alive &&
         connect_timeout == other.connect_timeout && transfer_timeout == other.transfer_timeout &&
         idle_timeout == other.idle_timeout && max_reply_bytes == other.max_reply_bytes &&
         connect_attempts == other.connect_attempts;
}

HTTP_Connection_Settings apply_connection_flags(HTTP_Connection_Settings settings, unsigned flags) {
  if (flags & HTTP_NO_KEEP_ALIVE) settings.keep_alive = false;
  if (flags & HTTP_NO_VERIFY_PEER) settings.verify_peer = false;
  return settings;
}
