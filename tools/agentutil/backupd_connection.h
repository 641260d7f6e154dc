// How the families that talk to the backup server reach it: --server (default
// 127.0.0.1:50305), --ssl, --ca-file, and this host's access key from
// --access-key-file or, with --ask-access-key, the terminal.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

#include "tools/agentutil/server_options.h"

namespace cli {

struct Backupd_Connection_Args {
  Server_Args server;
  std::string access_key_file;
  bool ask_access_key = false;
};

void add_backupd_options(CLI::App* family, Backupd_Connection_Args& args);

// Aims the framework's process-wide view of the backup server (HTTP_Options for its
// REST and JSON-RPC clients, WebSocket_Options for code that finds it there) where the
// user said, and gives Host_Manager the access key, which keeps it out of every log.
// False after the one failure line when the address or the key is unusable.
bool configure_backupd(Backupd_Connection_Args& args);

}  // namespace cli
