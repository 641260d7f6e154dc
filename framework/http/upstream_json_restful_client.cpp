#include "framework/http/upstream_json_restful_client.h"

#include "framework/http/host_manager.h"
#include "framework/http/http_header_ids.h"
#include "framework/http/http_options.h"

namespace {

HTTP_Connection_Settings upstream_settings(unsigned flags) {
  const HTTP_Options* options = HTTP_Options::instance();
  return apply_connection_flags(options->settings_for(options->backupd()), flags);
}

}  // namespace

Upstream_JSON_RESTful_Client::Upstream_JSON_RESTful_Client(unsigned flags)
    : JSON_RESTful_Client(upstream_settings(flags)), flags_(flags) {}

Upstream_JSON_RESTful_Client* Upstream_JSON_RESTful_Client::instance() {
  static Upstream_JSON_RESTful_Client client;
  return &client;
}

void Upstream_JSON_RESTful_Client::refresh() {
  apply_settings(upstream_settings(flags_));
  const std::string key = Host_Manager::instance()->access_key();
  if (key.empty())
    default_headers().remove(http_header_name(HTTP_HEADER_ACCESS_KEY));
  else
    default_headers().put(HTTP_HEADER_ACCESS_KEY, key.c_str(), true);
}
