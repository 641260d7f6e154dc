// How a writer or a backup reaches its cluster: a client id and either a configuration
// file or inline key/value pairs.
#pragma once

#include <functional>
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

// Connects a client for `options` and runs `open` on it. When the connection fails on a
// configuration that was given, logs `failure_format` with `uri` and the client id (an
// empty configuration has logged its own line); `open` logs its own failures.
bool open_on_new_client(const Options& options, const std::string& uri,
                        const char* failure_format,
                        const std::function<bool(Ceph_Client&)>& open);

}  // namespace ceph
