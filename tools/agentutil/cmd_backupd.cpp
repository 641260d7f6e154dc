// agentutil backupd: what an agent asks of the backup server, from a shell.
//
//   agentutil backupd --access-key-file key.txt forward --channel c1 check '{"action":"x"}'
//   agentutil backupd --server 10.0.0.2:50305 catalogs /d2/r/catalogs/job-7 --first
//
// The access key is read from a file (first line) or asked on the terminal, never taken
// on the command line, and handed to the framework's process-wide setting, which keeps
// it out of every log.
#include <iostream>
#include <map>

#include "framework/json/reader.h"
#include "framework/jsonrpc/json_rpc_http_session.h"
#include "tools/agentutil/backupd_connection.h"
#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
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
  cli::Backupd_Connection_Args connection;
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

// One line for the failure report: the parser's message may span several.
std::string single_line(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  return text;
}

int forward(Backupd_Args& a) {
  Value params;  // no PARAMS_JSON: null, sent as it is
  std::string error;
  if (!a.params_json.empty() && !json_spirit::read(a.params_json, params, error))
    return cli::fail("PARAMS_JSON is not valid JSON: " + single_line(error));
  if (!cli::configure_backupd(a.connection)) return 1;
  JSON_RPC_HTTP_Session::default_retry_interval(FORWARD_RETRY_INTERVAL_MS);
  Backupd_Info info;
  info.load();
  info.channel_id = a.channel;
  Value result;
  if (!json_rpc_forward(info, a.method, params, &result, result_types().at(a.expect)))
    return cli::fail("forwarding '" + a.method + "' through channel '" + a.channel + "' failed");
  if (cli::options().json)
    cli::print_json(json_spirit::Object{{"channel", a.channel}, {"method", a.method}, {"result", result}});
  else
    cli::print_json(result);
  return 0;
}

// A listing's rows one per line under a count, so that grep works on them; anything
// else whole.
void print_catalogs(const std::string& uri, const Value& listing) {
  if (listing.type() == json_spirit::obj_type) {
    const auto& obj = listing.get_obj();
    const auto rows = obj.find("rows");
    if (rows != obj.end() && rows->second.type() == json_spirit::array_type) {
      const auto& list = rows->second.get_array();
      std::cout << cli::count_of(list.size(), "catalog") << " at " << uri << (list.empty() ? "\n" : ":\n");
      for (const auto& row : list) cli::print_json_line(row);
      return;
    }
  }
  cli::print_json(listing);
}

int catalogs(Backupd_Args& a) {
  if (!cli::configure_backupd(a.connection)) return 1;
  Value out;
  if (a.first) {
    if (!read_first_catalog(a.uri.c_str(), out, CATALOG_RETRIES, CATALOG_RETRY_TIMEOUT_SECONDS))
      return cli::fail("cannot read the first catalog at '" + a.uri + "'");
    cli::print_json(out);
    return 0;
  }
  if (!read_catalogs(a.uri.c_str(), out, CATALOG_RETRIES, CATALOG_RETRY_TIMEOUT_SECONDS))
    return cli::fail("cannot read the catalogs at '" + a.uri + "'");
  if (cli::options().json)
    cli::print_json(out);
  else
    print_catalogs(a.uri, out);
  return 0;
}

}  // namespace

void add_backupd_commands(CLI::App& app) {
  static Backupd_Args args;
  CLI::App* backupd = app.add_subcommand("backupd", "Calls to the backup server");
  backupd->require_subcommand(1);
  cli::add_backupd_options(backupd, args.connection);

  CLI::App* fwd = backupd->add_subcommand("forward", "Forward a JSON-RPC call to an agent's channel");
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
  cat->add_option("uri", args.uri, "Catalog path on the server, e.g. /d2/r/catalogs/job-7")->required();
  cat->add_flag("--first", args.first, "Only the first row of the listing");
  cli::set_command(cat, [] { return catalogs(args); });
}
