#include "tools/agentutil/server_options.h"

#include <arpa/inet.h>
#include <netinet/in.h>

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
  family->add_flag("--plain-http", args.plain_http,
                   "Accept plain HTTP to a host off this machine (secrets then travel in the clear)")
      ->excludes("--ssl");
  family->add_option("--ca-file", args.ca_file, "PEM file of the server's certificate or its CA")
      ->check(CLI::ExistingFile);
}

namespace {

bool is_loopback(const std::string& host) {
  in_addr v4 {};
  in6_addr v6 {};
  if (::inet_pton(AF_INET, host.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
  if (::inet_pton(AF_INET6, host.c_str(), &v6) == 1) return IN6_IS_ADDR_LOOPBACK(&v6);
  return host == "localhost";
}

}  // namespace

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
  if (!args.ssl && !args.plain_http && !is_loopback(host)) {
    fail("refusing plain HTTP to " + host + ": secrets would cross the network in the clear; "
         "use --ssl (or --plain-http to accept that)");
    return false;
  }
  args.host = host;
  args.port = static_cast<unsigned short>(number);
  return true;
}

}  // namespace cli
