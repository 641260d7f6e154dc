#include "tools/agentutil/server_options.h"

#include "tools/agentutil/cli_common.h"

namespace cli {

void add_server_options(CLI::App* family, Server_Args& args, const std::string& what,
                        const std::string& default_server) {
  args.server = default_server;
  CLI::Option* server = family->add_option("--server", args.server, what + " as HOST:PORT");
  if (default_server.empty())
    server->required();
  else
    server->capture_default_str();
  family->add_flag("--ssl", args.ssl, "Speak HTTPS");
  family->add_option("--ca-file", args.ca_file, "PEM file of the server's certificate or its CA")
      ->check(CLI::ExistingFile);
}

bool parse_server(Server_Args& args) {
  const std::string& text = args.server;
  const auto colon = text.rfind(':');
  std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
  const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  const bool digits = !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
  const unsigned long number = digits ? std::stoul(port) : 0;
  if (host.empty() || number == 0 || number > 65535) {
    fail("bad --server '" + text + "': expected HOST:PORT");
    return false;
  }
  args.host = host;
  args.port = static_cast<unsigned short>(number);
  return true;
}

}  // namespace cli
