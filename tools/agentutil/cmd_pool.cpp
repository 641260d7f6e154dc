// agentutil pool: storage pools as the backup server describes them to this agent,
// reached by name through the library's I/O connection factory.
//
//   agentutil pool --server 10.0.0.2:50305 --access-key-file key.txt info daily
//   agentutil pool verify daily job7/piece-0001
//
// Pool secrets (keys, IVs, access keys) come from the backup server and are only ever
// shown masked.
#include <iostream>
#include <sstream>

#include "framework/client_io/image_block_reader.h"
#include "framework/json/writer.h"
#include "tools/agentutil/backupd_connection.h"
#include "tools/agentutil/cancel.h"
#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
#include "utils/agent/io_connection_factory.h"

namespace {

struct Pool_Args {
  cli::Backupd_Connection_Args connection;
  std::string device_uuid;
  bool restore = false;
  std::string pool;
  std::string piece;
  std::vector<std::string> local_roots;
};

// A factory aimed at the backup server the user named; false after the failure line.
bool make_factory(Pool_Args& a, IO_Connection_Factory& factory) {
  if (!cli::configure_backupd(a.connection)) return false;
  IO_Connection_Factory::Options o;
  o.device_uuid = a.device_uuid;
  o.is_restore = a.restore;
  o.bounds.local_roots = a.local_roots;
  if (!factory.init(std::move(o))) return cli::fail("cannot reach the backup server"), false;
  return true;
}

std::string masked(const std::string& secret) { return secret.empty() ? "" : json_spirit::MASKED_SECRET; }

template <class Map>
std::string joined(const Map& entries) {
  std::ostringstream out;
  for (const auto& [k, v] : entries) out << (out.tellp() > 0 ? ", " : "") << k << "=" << v;
  return out.str();
}

std::string encryption_text(const Pool_Info& p) {
  if (p.server_side_encryption) return "by the pool";
  if (p.cipher == ENCR_NONE) return "none";
  return std::string(encryption_algorithm_name(p.cipher)) + ", key " + masked(p.key) + ", iv " +
         masked(p.iv);
}

std::string s3_text(const Pool_Info& p) {
  if (!p.s3_enabled) return "no";
  std::map<std::string, std::string> shown = p.default_s3;
  for (const char* secret : {"access_key", "secret_key"})
    if (shown.count(secret) != 0) shown[secret] = masked(shown[secret]);
  return shown.empty() ? "yes" : "yes, " + joined(shown);
}

void print_pool(const std::string& name, const Pool_Info& p) {
  cli::print_fields({{"pool", name},
                     {"uuid", p.uuid},
                     {"url", p.url},
                     {"host uuid", p.host_uuid},
                     {"device exists", cli::yes_no(p.device_exists)},
                     {"multidevice", cli::yes_no(p.multidevice)},
                     {"encryption", encryption_text(p)},
                     {"tenant access key", masked(p.tenant_access_key)},
                     {"preferred source", p.preferred_source_address},
                     {"nodes", joined(p.node_addrs)},
                     {"dedup backend", p.dedup_backend_type},
                     {"s3", s3_text(p)},
                     {"attributes", joined(p.ext_attrs)}});
}

int pool_info(Pool_Args& a) {
  IO_Connection_Factory factory;
  if (!make_factory(a, factory)) return 1;
  const Pool_Info* info = factory.get_pool_info(a.pool);
  if (info == nullptr) return cli::fail("no description of pool '" + a.pool + "'");
  if (cli::options().json)
    std::cout << json_spirit::write(pool_info_to_json(*info), true, json_spirit::Secrets::masked) << "\n";
  else
    print_pool(a.pool, *info);
  return 0;
}

// Every record of the piece read and checked through a connection the factory made.
int verify_piece(Pool_Args& a) {
  IO_Connection_Factory factory;
  if (!make_factory(a, factory)) return 1;
  std::unique_ptr<Client_IO_Ex> io = factory(a.pool);
  if (!io) return cli::fail("cannot connect to pool '" + a.pool + "'");
  if (!io->open(a.piece, Client_IO_Base::OPEN_READ, 0, 0))
    return cli::fail("cannot open piece " + a.piece + ": " + io->last_error());
  uint64_t image_bytes = 0;
  const bool ok = Image_Block_Reader::read_blocks_align(io.get(), [&](const void*, size_t n, off_t) {
    image_bytes += n;
    return !cli::cancel_requested();
  }, 0, true);
  if (cli::cancel_requested()) return cli::fail("verification of " + a.piece + " stopped");
  if (!ok) return cli::fail("piece " + a.piece + " is damaged");
  if (cli::options().json) {
    cli::print_json(json_spirit::Object{{"pool", a.pool}, {"piece", a.piece}, {"ok", true},
                                        {"image_bytes", image_bytes},
                                        {"piece_bytes_read", io->bytes_read()}});
  } else {
    std::cout << a.piece << ": " << cli::size_text(image_bytes) << " of image checked, OK\n";
  }
  return 0;
}

}  // namespace

void add_pool_commands(CLI::App& app) {
  static Pool_Args args;
  CLI::App* pool = app.add_subcommand("pool", "Storage pools as the backup server describes them");
  pool->require_subcommand(1);
  cli::add_backupd_options(pool, args.connection);
  pool->add_option("--device", args.device_uuid, "Ask for the pool on behalf of this device uuid");
  pool->add_flag("--restore", args.restore, "Ask for the pool as a restore would");

  CLI::App* info = pool->add_subcommand("info", "Print a pool's description, secrets masked");
  info->add_option("name", args.pool, "Pool name")->required();
  cli::set_command(info, [] { return pool_info(args); });

  CLI::App* verify = pool->add_subcommand("verify", "Read and check every record of one piece");
  verify->add_option("name", args.pool, "Pool name")->required();
  verify->add_option("piece", args.piece, "Piece name in the pool")->required();
  verify->add_option("--local-pool-root", args.local_roots,
                     "Directory under which the server may name directory pools (none: no directory pool)")
      ->allow_extra_args(false);
  cli::set_command(verify, [] { return verify_piece(args); });
}
