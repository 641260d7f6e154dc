// How every `agentutil ceph` command reaches a cluster: --conf and/or --config, --id,
// given on the family (`agentutil ceph --conf c.conf pools`) or after the command.
#pragma once

#include <CLI/CLI.hpp>

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

void add_ceph_connection_options(CLI::App* family, Ceph_Connection_Args& args);

// A connected client, or null after printing the one failure line. Without --conf and
// --config, librados looks in its default places (CEPH_CONF, /etc/ceph/ceph.conf, ...).
std::unique_ptr<ceph::Ceph_Client> connect_ceph(const Ceph_Connection_Args& args);

}  // namespace cli

// agentutil ceph backup|restore (cmd_ceph_transfer.cpp), on the family's connection.
void add_ceph_transfer_commands(CLI::App* ceph, cli::Ceph_Connection_Args& conn);
