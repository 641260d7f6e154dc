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
