#include "utils/agent/ceph/ceph_options.h"

#include <ace/Log_Msg.h>

#include "utils/agent/ceph/ceph_client.h"

namespace ceph {

bool connect_client(const Options& options, Ceph_Client& client) {
  if (options.ceph_config_file_path.empty()) {
    if (options.ceph_configs.empty()) {
      ACE_ERROR((LM_ERROR, "Empty Ceph config for Ceph client '%s'.\n",
                 options.client_id.c_str()));
      return false;
    }
    client.set_configs(options.ceph_configs, true);
  } else {
    client.set_configs(options.ceph_config_file_path);
  }
  return client.connect();
}

bool open_on_new_client(const Options& options, const std::string& uri,
                        const char* failure_format,
                        const std::function<bool(Ceph_Client&)>& open) {
  Ceph_Client client(options.client_id, true);
  if (connect_client(options, client)) return open(client);
  if (!options.ceph_config_file_path.empty() || !options.ceph_configs.empty())
    ACE_ERROR((LM_ERROR, failure_format, uri.c_str(), options.client_id.c_str()));
  return false;
}

}  // namespace ceph
