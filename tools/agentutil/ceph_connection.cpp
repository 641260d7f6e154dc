#include "tools/agentutil/ceph_connection.h"

#include <fcntl.h>
#include <unistd.h>

#include "tools/agentutil/cli_common.h"

namespace cli {
namespace {

// librados prints its own lines (keyring searches, monitor hunting) straight to stderr,
// whatever err_to_stderr says, while it connects. Without --verbose they go to
// /dev/null for that time, so that a failure ends in the tool's one line.
class Quiet_Stderr {
 public:
  Quiet_Stderr() {
    if (options().verbose) return;
    const int null_fd = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    saved_ = null_fd < 0 ? -1 : ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    if (saved_ >= 0) ::dup2(null_fd, STDERR_FILENO);
    if (null_fd >= 0) ::close(null_fd);
  }
  ~Quiet_Stderr() {
    if (saved_ < 0) return;
    ::dup2(saved_, STDERR_FILENO);
    ::close(saved_);
  }
  Quiet_Stderr(const Quiet_Stderr&) = delete;
  Quiet_Stderr& operator=(const Quiet_Stderr&) = delete;

 private:
  int saved_ = -1;
};

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
  bool connected = false;
  {
    const Quiet_Stderr quiet;
    connected = client->set_configs(configs, false) && client->connect();
  }
  if (!connected) {
    fail(options().verbose ? "cannot connect to the Ceph cluster"
                           : "cannot connect to the Ceph cluster (--verbose shows Ceph's own messages)");
    return nullptr;
  }
  return client;
}

}  // namespace cli
