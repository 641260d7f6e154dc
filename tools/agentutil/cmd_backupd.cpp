// agentutil backupd: what an agent asks of the backup server, from a shell.
//
//   agentutil backupd forward --channel c1 --access-key-file key.txt check '{"action":"x"}'
//   agentutil backupd catalogs /d2/r/catalogs/job-7 --first --server 10.0.0.2:50305
//
// The access key is read from a file (first line), never taken on the command line,
// and handed to the framework's process-wide setting, which keeps it out of every log.
#include <fstream>
#include <iostream>
#include <map>

#include "framework/http/host_manager.h"
#include "framework/http/http_options.h"
#include "framework/json/reader.h"
#include "framework/json/writer.h"
#include "framework/jsonrpc/json_rpc_http_session.h"
#include "tools/agentutil/cli_common.h"
#include "utils/agent/catalog_helpers.h"
#include "utils/agent/json_rpc_channel_forward.h"

namespace {

using json_spirit::Value;

// One attempt more than none, with a short wait: a person at a shell would rather
// see the failure than wait out an agent's patience.
const int CATALOG_RETRIES = 1;
const int CATALOG_RETRY_TIMEOUT_SECONDS = 10;
const unsigned FORWARD_RETRY_INTERVAL_MS = 200;

struct Backupd_Args {
  std::string server = "127.0.0.1:" + std::to_string(HTTP_Options::DEFAULT_BACKUPD_PORT);
  bool ssl = false;
  std::string access_key_file;
  std::string channel;
  std::string method;
  std::string params_json;
  std::string expect = "object";
  std::string uri;
  bool first = false;
};

const std::map<std::string, json_spirit::Value_type>& result_types() {
  static const std::map<std::string, json_spirit::Value_type> types{
      {"object", json_spirit::obj_type}, {"array", json_spirit::array_type},
      {"string", json_spirit::str_type}, {"bool", json_spirit::bool_type},
      {"int", json_spirit::int_type},    {"real", json_spirit::real_type},
      {"null", json_spirit::null_type}};
  return types;
}

void add_server_options(CLI::App* cmd, Backupd_Args& a) {
  cmd->add_option("--server", a.server, "Backup server as HOST:PORT")->capture_default_str();
  cmd->add_flag("--ssl", a.ssl, "Speak HTTPS to the backup server");
  cmd->add_option("--access-key-file", a.access_key_file,
                  "File whose first line is this host's access key");
}

// "host:port", "[v6-address]:port"; false on anything else.
bool parse_server(const std::string& text, HTTP_Server_Address& out) {
  const auto colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return false;
  std::string host = text.substr(0, colon);
  if (host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  const std::string port = text.substr(colon + 1);
  if (host.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos)
    return false;
  const unsigned long number = std::stoul(port);
  if (number == 0 || number > 65535) return false;
  out.host = host;
  out.port = static_cast<unsigned short>(number);
  return true;
}

// Aims the framework's process-wide backup server settings where the user said.
// Prints the failure line and returns false when the address or the key is unusable.
bool configure_server(const Backupd_Args& a) {
  HTTP_Server_Address address;
  if (!parse_server(a.server, address)) {
    cli::fail("bad --server '" + a.server + "': expected HOST:PORT");
    return false;
  }
  address.ssl = a.ssl;
  HTTP_Options::instance()->backupd(address);
  if (a.access_key_file.empty()) return true;
  std::ifstream in(a.access_key_file);
  std::string key;
  if (!in || !std::getline(in, key)) {
    cli::fail("cannot read the access key file '" + a.access_key_file + "'");
    return false;
  }
  if (!key.empty() && key.back() == '\r') key.pop_back();
  if (key.empty()) {
    cli::fail("the access key file '" + a.access_key_file + "' starts with an empty line");
    return false;
  }
  Host_Manager::instance()->access_key(key);
  return true;
}

// One line for the failure report: the parser's message may span several.
std::string single_line(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  return text;
}

void print_json(const Value& v) { std::cout << json_spirit::write(v, true) << "\n"; }

int forward(const Backupd_Args& a) {
  Value params;  // no PARAMS_JSON: null, sent as it is
  std::string error;
  if (!a.params_json.empty() && !json_spirit::read(a.params_json, params, error))
    return cli::fail("PARAMS_JSON is not valid JSON: " + single_line(error));
  if (!configure_server(a)) return 1;
  JSON_RPC_HTTP_Session::default_retry_interval(FORWARD_RETRY_INTERVAL_MS);
  Backupd_Info info;
  info.load();
  info.channel_id = a.channel;
  Value result;
  if (!json_rpc_forward(info, a.method, params, &result, result_types().at(a.expect)))
    return cli::fail("forwarding '" + a.method + "' through channel '" + a.channel + "' failed");
  if (cli::options().json)
    print_json(json_spirit::Object{{"channel", a.channel}, {"method", a.method}, {"result", result}});
  else
    print_json(result);
  return 0;
}

// A listing's rows one per line, so that grep and wc work on them; anything else whole.
void print_catalogs(const Value& listing) {
  if (listing.type() == json_spirit::obj_type) {
    const auto& obj = listing.get_obj();
    const auto rows = obj.find("rows");
    if (rows != obj.end() && rows->second.type() == json_spirit::array_type) {
      for (const auto& row : rows->second.get_array()) std::cout << json_spirit::write(row) << "\n";
      std::cout << rows->second.get_array().size() << " catalog(s)\n";
      return;
    }
  }
  print_json(listing);
}

int catalogs(const Backupd_Args& a) {
  if (!configure_server(a)) return 1;
  Value out;
  if (a.first) {
    if (!read_first_catalog(a.uri.c_str(), out, CATALOG_RETRIES, CATALOG_RETRY_TIMEOUT_SECONDS))
      return cli::fail("cannot read the first catalog at '" + a.uri + "'");
    print_json(out);
    return 0;
  }
  if (!read_catalogs(a.uri.c_str(), out, CATALOG_RETRIES, CATALOG_RETRY_TIMEOUT_SECONDS))
    return cli::fail("cannot read the catalogs at '" + a.uri + "'");
  if (cli::options().json)
    print_json(out);
  else
    print_catalogs(out);
  return 0;
}

}  // namespace

void add_backupd_commands(CLI::App& app) {
  static Backupd_Args args;
  CLI::App* backupd = app.add_subcommand("backupd", "Calls to the backup server");
  backupd->require_subcommand(1);

  CLI::App* fwd = backupd->add_subcommand("forward", "Forward a JSON-RPC call to an agent's channel");
  add_server_options(fwd, args);
  fwd->add_option("--channel", args.channel, "The target agent's channel id")->required();
  fwd->add_option("method", args.method, "JSON-RPC method")->required();
  fwd->add_option("params", args.params_json, "Params as JSON text (default: null)");
  std::vector<std::string> type_names;
  for (const auto& t : result_types()) type_names.push_back(t.first);
  fwd->add_option("--expect", args.expect, "JSON type the result must have")
      ->check(CLI::IsMember(type_names))
      ->capture_default_str();
  cli::set_command(fwd, [] { return forward(args); });

  CLI::App* cat = backupd->add_subcommand("catalogs", "Read the catalogs at a server path");
  add_server_options(cat, args);
  cat->add_option("uri", args.uri, "Catalog path on the server, e.g. /d2/r/catalogs/job-7")->required();
  cat->add_flag("--first", args.first, "Only the first row of the listing");
  cli::set_command(cat, [] { return catalogs(args); });
}
