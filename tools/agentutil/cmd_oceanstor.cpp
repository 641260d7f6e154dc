// agentutil oceanstor: what a backup agent asks of an OceanStor array, from a shell.
//
//   agentutil oceanstor --server 10.0.0.5:8088 --ssl --ca-file array.pem
//       --user admin --password-file pw.txt changed-blocks --lun 11 --size 5368709120
//
// The password is read from a file (first line) or asked on the terminal, never taken
// on the command line.
#include <iostream>
#include <memory>

#include "tools/agentutil/cancel.h"
#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
#include "tools/agentutil/progress.h"
#include "tools/agentutil/secret_input.h"
#include "tools/agentutil/server_options.h"
#include "utils/agent/oceanstor/oceanstor_client.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;

// The array reports its bitmap chunk size in KiB.
constexpr uint64_t ARRAY_CHUNK_UNIT_BYTES = 1024;

struct Array_Args {
  cli::Server_Args server;
  std::string device_id;
  std::string user;
  std::string password_file;
  std::string scope;
  std::string lun;
  std::string snapshot;
  std::string group;
  std::string host_id;
  std::string base;
  unsigned long size = 0;
};

// Logged in, with the array's own device id in place for the URLs.
std::unique_ptr<oceanstor::OceanStor_Client> connect(Array_Args& a) {
  oceanstor::Device_Manager_Info info;
  if (!cli::parse_server(a.server) || !cli::read_secret(a.password_file, "OceanStor password", info.auth_info.password))
    return nullptr;
  info.host = a.server.host;
  info.port = a.server.port;
  info.ssl = a.server.ssl;
  info.device_id = a.device_id;
  info.auth_info.username = a.user;
  info.auth_info.scope = a.scope;
  info.ca_file = a.server.ca_file;
  std::unique_ptr<oceanstor::OceanStor_Client> client(new oceanstor::OceanStor_Client(info));
  if (!client->test_login()) {
    cli::fail("cannot log in to " + a.server.server);
    return nullptr;
  }
  return client;
}

int login(Array_Args& a) {
  auto client = connect(a);
  if (!client) return 1;
  if (cli::options().json)
    cli::print_json(Object{{"device_id", client->auth().device_id}});
  else
    std::cout << "logged in to " << a.server.server << " as " << a.user << ", device id "
              << client->auth().device_id << "\n";
  return 0;
}

int show_lun(Array_Args& a) {
  auto client = connect(a);
  if (!client) return 1;
  oceanstor::LUN l;
  if (!client->get_lun(a.lun, l)) return cli::fail("cannot read LUN '" + a.lun + "'");
  const bool exposed = l.exposed_to_initiator == "true";
  if (cli::options().json)
    cli::print_json(Object{{"id", l.id}, {"name", l.name}, {"wwn", l.wwn}, {"type", l.type},
                           {"exposed", exposed}, {"host_lun_id", l.host_lun_id}});
  else
    cli::print_fields({{"LUN", l.id}, {"name", l.name}, {"WWN", l.wwn}, {"exposed to a host", cli::yes_no(exposed)}});
  return 0;
}

int show_snapshot(Array_Args& a) {
  auto client = connect(a);
  if (!client) return 1;
  oceanstor::Snapshot snap;
  if (!client->get_snapshot(a.snapshot, snap)) return cli::fail("cannot read snapshot '" + a.snapshot + "'");
  const bool exposed = snap.exposed_to_initiator == "true";
  if (cli::options().json)
    cli::print_json(Object{{"id", snap.id}, {"name", snap.name}, {"wwn", snap.wwn}, {"exposed", exposed}});
  else
    cli::print_fields(
        {{"snapshot", snap.id}, {"name", snap.name}, {"WWN", snap.wwn}, {"exposed to a host", cli::yes_no(exposed)}});
  return 0;
}

// attach / detach of whichever of --lun and --snapshot was given.
int map_object(Array_Args& a, bool attach) {
  if (a.lun.empty() == a.snapshot.empty()) return cli::fail("give exactly one of --lun and --snapshot");
  auto client = connect(a);
  if (!client) return 1;
  const bool lun = !a.lun.empty();
  const bool done = lun ? (attach ? client->attach_lun(a.lun, a.group) : client->detach_lun(a.lun, a.group))
                        : (attach ? client->attach_snapshot(a.snapshot, a.group)
                                  : client->detach_snapshot(a.snapshot, a.group));
  const std::string what = lun ? "LUN " + a.lun : "snapshot " + a.snapshot;
  if (!done) return cli::fail(std::string(attach ? "cannot attach " : "cannot detach ") + what);
  if (cli::options().json)
    cli::print_json(Object{{lun ? "lun" : "snapshot", lun ? a.lun : a.snapshot},
                           {"group", a.group},
                           {attach ? "attached" : "detached", true}});
  else
    std::cout << (attach ? "attached " : "detached ") << what << (attach ? " to" : " from") << " lun group " << a.group
              << (attach ? "" : "; the array no longer exposes it") << "\n";
  return 0;
}

int list_hosts(Array_Args& a) {
  if (a.lun.empty() == a.snapshot.empty()) return cli::fail("give exactly one of --lun and --snapshot");
  auto client = connect(a);
  if (!client) return 1;
  std::vector<oceanstor::Host> hosts;
  const bool read = a.lun.empty() ? client->get_snapshot_belong_hosts(a.snapshot, hosts)
                                  : client->get_lun_belong_hosts(a.lun, hosts);
  if (!read) return cli::fail("cannot list hosts");
  if (cli::options().json) {
    Array out;
    for (const auto& h : hosts) out.push_back(Object{{"id", h.id}, {"name", h.name}, {"ip", h.ip}});
    cli::print_json(out);
    return 0;
  }
  const std::string what = a.lun.empty() ? "snapshot " + a.snapshot : "LUN " + a.lun;
  if (hosts.empty()) {
    std::cout << what << " is mapped to no host\n";
    return 0;
  }
  std::cout << what << " is mapped to " << cli::count_of(hosts.size(), "host") << ":\n";
  cli::Table table({"HOST", "NAME", "IP ADDRESS"});
  for (const auto& h : hosts) table.add({h.id, h.name, h.ip});
  table.print(std::cout);
  return 0;
}

int list_links(Array_Args& a) {
  auto client = connect(a);
  if (!client) return 1;
  std::vector<oceanstor::Host_Link> links;
  if (!client->get_fc_host_links(a.host_id, links)) return cli::fail("cannot list FC links of host " + a.host_id);
  if (cli::options().json) {
    Array out;
    for (const auto& l : links)
      out.push_back(Object{{"id", l.id}, {"initiator", l.initiator_port_wwn}, {"target", l.target_port_wwn}});
    cli::print_json(out);
    return 0;
  }
  if (links.empty()) {
    std::cout << "host " << a.host_id << " has no healthy FC link\n";
    return 0;
  }
  std::cout << "host " << a.host_id << " has " << cli::count_of(links.size(), "healthy FC link") << ":\n";
  cli::Table table({"LINK", "HOST PORT WWN", "ARRAY PORT WWN"});
  for (const auto& l : links) table.add({l.id, l.initiator_port_wwn, l.target_port_wwn});
  table.print(std::cout);
  return 0;
}

// The array's extents count chunks; the last one may reach past the end of the LUN.
Blocks to_bytes(const std::vector<Block>& chunks, uint64_t chunk_bytes, uint64_t size) {
  Blocks bytes;
  for (const auto& c : chunks) {
    const uint64_t offset = c.offset * chunk_bytes;
    if (offset >= size) break;
    bytes.emplace_back(offset, std::min(c.length * chunk_bytes, size - offset));
  }
  return bytes;
}

int changed_blocks(Array_Args& a) {
  auto client = connect(a);
  if (!client) return 1;
  std::vector<Block> blocks;
  unsigned long chunk_size = 0;
  cli::Progress progress("bitmap");
  client->set_bitmap_progress(
      [&progress](unsigned long done, unsigned long total) { return progress.update(done, total); });
  const bool ok = client->get_changed_blocks(a.lun, a.base.empty() ? nullptr : &a.base, a.size, blocks, chunk_size);
  client->set_bitmap_progress(nullptr);
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("cancelled");
  if (!ok) return cli::fail("cannot read the changed blocks of LUN '" + a.lun + "'");
  const uint64_t chunk_bytes = chunk_size * ARRAY_CHUNK_UNIT_BYTES;
  cli::print_changed_blocks(to_bytes(blocks, chunk_bytes, a.size), chunk_bytes, a.size);
  return 0;
}

}  // namespace

void add_oceanstor_commands(CLI::App& app) {
  static Array_Args args;
  CLI::App* array = app.add_subcommand("oceanstor", "OceanStor array: LUNs, snapshots, mapping, bitmaps");
  array->require_subcommand(1);
  cli::add_server_options(array, args.server, "Device manager");
  array->add_option("--device-id", args.device_id, "Array device id (taken from the login otherwise)");
  array->add_option("--user", args.user, "User name")->required();
  array->add_option("--password-file", args.password_file,
                    "File whose first line is the password (asked on the terminal otherwise)");
  array->add_option("--scope", args.scope, "Login scope (0: local user)");

  cli::set_command(array->add_subcommand("login", "Log in and print the device id"), [] { return login(args); });

  CLI::App* lun = array->add_subcommand("lun", "Show one LUN");
  lun->add_option("id", args.lun, "LUN id")->required();
  cli::set_command(lun, [] { return show_lun(args); });

  CLI::App* snap = array->add_subcommand("snapshot", "Show one snapshot");
  snap->add_option("id", args.snapshot, "Snapshot id")->required();
  cli::set_command(snap, [] { return show_snapshot(args); });

  for (const bool attach : {true, false}) {
    CLI::App* cmd = array->add_subcommand(attach ? "attach" : "detach",
                                          attach ? "Add a LUN or snapshot to a lun group"
                                                 : "Remove a LUN or snapshot from a lun group and wait until unexposed");
    cmd->add_option("--lun", args.lun, "LUN id");
    cmd->add_option("--snapshot", args.snapshot, "Snapshot id");
    cmd->add_option("--group", args.group, "Lun group id")->required();
    cli::set_command(cmd, [attach] { return map_object(args, attach); });
  }

  CLI::App* hosts = array->add_subcommand("hosts", "Hosts a LUN or snapshot is mapped to");
  hosts->add_option("--lun", args.lun, "LUN id");
  hosts->add_option("--snapshot", args.snapshot, "Snapshot id");
  cli::set_command(hosts, [] { return list_hosts(args); });

  CLI::App* links = array->add_subcommand("fc-links", "Healthy Fibre Channel links of a host");
  links->add_option("host", args.host_id, "Host id")->required();
  cli::set_command(links, [] { return list_links(args); });

  CLI::App* changed = array->add_subcommand("changed-blocks",
                                            "Byte extents of a LUN that hold data, or that differ from a base");
  changed->add_option("--lun", args.lun, "LUN or snapshot id")->required();
  changed->add_option("--size", args.size, "LUN size in bytes")->required();
  changed->add_option("--base", args.base, "Base LUN or snapshot id (incremental)");
  cli::set_command(changed, [] { return changed_blocks(args); });
}
