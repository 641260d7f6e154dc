// How the families that speak HTTP name their server: --server HOST:PORT, --ssl and
// --ca-file, given on the family (`agentutil backupd --server ... forward ...`).
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace cli {

struct Server_Args {
  std::string server;   // HOST:PORT or [V6-ADDRESS]:PORT
  bool ssl = false;
  bool plain_http = false;  // plain HTTP accepted to a host off this machine
  std::string ca_file;  // PEM of the server's certificate or its CA; "" = the system's
  std::string host;     // from `server`, once parsed
  unsigned short port = 0;
};

// `what` names the server in the help text. A default address makes --server optional.
void add_server_options(CLI::App* family, Server_Args& args, const std::string& what,
                        const std::string& default_server = "");

// Splits args.server into host and port; false after the one failure line. Plain HTTP is
// refused to any host but a loopback one (127.0.0.0/8, ::1, localhost) unless --plain-http
// says so: the access key, passwords and pool keys would cross the network in the clear.
bool parse_server(Server_Args& args);

}  // namespace cli
