// How a writer or a backup reaches its cluster: a client id and either a configuration
// file or inline key/value pairs.
#pragma once

#include <string>

#include "framework/json/value.h"

namespace ceph {

struct Options {
  std::string client_id;
  std::string ceph_config_file_path;  // empty when the configuration is given inline
  json_spirit::Object ceph_configs;
};

class Ceph_Client;

// Builds the client for `options` (closing its handles on destruction) and connects it.
// An empty configuration logs "Empty Ceph config for Ceph client '%s'." and gives false;
// a failed connection gives false after librados' own line.
bool connect_client(const Options& options, Ceph_Client& client);

}  // namespace ceph
