#include "tools/agentutil/ceph_connection.h"

#include "tools/agentutil/cli_common.h"

namespace cli {

void add_ceph_connection_options(CLI::App* cmd, Ceph_Connection_Args& args) {
  cmd->add_option("--conf", args.conf, "Ceph configuration file")->check(CLI::ExistingFile);
  cmd->add_option("--config", args.configs, "Ceph option KEY=VALUE (repeatable)");
  cmd->add_option("--id", args.id, "Ceph client id (without \"client.\")");
}

std::unique_ptr<ceph::Ceph_Client> connect_ceph(const Ceph_Connection_Args& args) {
  ceph::Ceph_Client::Options options;
  for (const auto& kv : args.configs) {
    const auto eq = kv.find('=');
    if (eq == std::string::npos || eq == 0) {
      fail("--config expects KEY=VALUE, got '" + kv + "'");
      return nullptr;
    }
    options[kv.substr(0, eq)] = json_spirit::Value(kv.substr(eq + 1));
  }
  auto client = std::make_unique<ceph::Ceph_Client>(args.id, true);
  if (!client->context().ctx_) {
    fail("cannot create a Ceph client");
    return nullptr;
  }
  if (!args.conf.empty() && !client->set_configs(args.conf)) {
    fail("cannot read " + args.conf);
    return nullptr;
  }
  if (!client->set_configs(options, false) || !client->connect()) {
    fail("cannot connect to the Ceph cluster");
    return nullptr;
  }
  return client;
}

}  // namespace cli
