#include "tools/agentutil/backupd_connection.h"

#include "framework/http/host_manager.h"
#include "framework/http/http_options.h"
#include "tools/agentutil/secret_input.h"

namespace cli {

void add_backupd_options(CLI::App* family, Backupd_Connection_Args& args) {
  add_server_options(family, args.server, "Backup server",
                     "127.0.0.1:" + std::to_string(HTTP_Options::DEFAULT_BACKUPD_PORT));
  family->add_option("--access-key-file", args.access_key_file, "File whose first line is this host's access key");
  family->add_flag("--ask-access-key", args.ask_access_key, "Ask for the access key on the terminal");
}

bool configure_backupd(Backupd_Connection_Args& args) {
  if (!parse_server(args.server)) return false;
  const HTTP_Server_Address address{args.server.host, args.server.port, args.server.ssl};
  HTTP_Options::instance()->backupd(address);
  WebSocket_Options::instance()->backupd(address);
  if (!args.server.ca_file.empty()) {
    HTTP_Connection_Settings settings = HTTP_Options::instance()->defaults();
    settings.ca_file = args.server.ca_file;
    HTTP_Options::instance()->defaults(settings);
  }
  if (args.access_key_file.empty() && !args.ask_access_key) return true;
  std::string key;
  if (!read_secret(args.access_key_file, "access key", key)) return false;
  Host_Manager::instance()->access_key(key);
  return true;
}

}  // namespace cli
