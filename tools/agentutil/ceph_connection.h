// How every `agentutil ceph` command reaches a cluster: --conf and/or --config, --id.
#pragma once

#include <CLI/CLI.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "utils/agent/ceph/ceph_client.h"

namespace cli {

struct Ceph_Connection_Args {
  std::string conf;                  // a ceph.conf path
  std::vector<std::string> configs;  // KEY=VALUE options, applied after the file
  std::string id = "admin";
};

void add_ceph_connection_options(CLI::App* cmd, Ceph_Connection_Args& args);

// A connected client, or null after printing the one failure line.
std::unique_ptr<ceph::Ceph_Client> connect_ceph(const Ceph_Connection_Args& args);

}  // namespace cli
