#include "tools/agentutil/ceph_connection.h"

#include "tools/agentutil/cli_common.h"

namespace cli {
namespace {

bool parse_configs(const std::vector<std::string>& configs, ceph::Ceph_Client::Options& options) {
  for (const auto& kv : configs) {
    const auto eq = kv.find('=');
    if (eq == std::string::npos || eq == 0) {
      fail("--config expects KEY=VALUE, got '" + kv + "'");
      return false;
    }
    options[kv.substr(0, eq)] = json_spirit::Value(kv.substr(eq + 1));
  }
  return true;
}

}  // namespace

void add_ceph_connection_options(CLI::App* family, Ceph_Connection_Args& args) {
  family->add_option("--conf", args.conf, "Ceph configuration file")->check(CLI::ExistingFile);
  family->add_option("--config", args.configs, "Ceph option KEY=VALUE (repeatable)");
  family->add_option("--id", args.id, "Ceph client id (without \"client.\")")->capture_default_str();
}

std::unique_ptr<ceph::Ceph_Client> connect_ceph(const Ceph_Connection_Args& args) {
  ceph::Ceph_Client::Options configs;
  if (!parse_configs(args.configs, configs)) return nullptr;
  auto client = std::make_unique<ceph::Ceph_Client>(args.id, true);
  if (!client->context().ctx_) {
    fail("cannot create a Ceph client (are librados2 and librbd1 installed?)");
    return nullptr;
  }
  const bool search_defaults = args.conf.empty() && args.configs.empty();
  if ((!args.conf.empty() || search_defaults) && !client->set_configs(args.conf)) {
    fail(search_defaults ? "no Ceph configuration found (give --conf FILE or --config mon_host=ADDRESS)"
                         : "cannot read " + args.conf);
    return nullptr;
  }
  if (!client->set_configs(configs, false) || !client->connect()) {
    fail("cannot connect to the Ceph cluster");
    return nullptr;
  }
  return client;
}

}  // namespace cli
