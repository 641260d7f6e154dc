// agentutil ceph backup|restore: an RBD snapshot into a piece of a storage pool, and pieces
// back into an image.
//
//   agentutil ceph backup ceph://rbd/vm1@b1 --pool file:///backups --piece vm1/b1
//   agentutil ceph backup ceph://rbd/vm1@b2 --base vm1/b1 --pool file:///backups --piece vm1/b2
//   agentutil ceph restore ceph://rbd/vm1-restored --pool file:///backups --piece vm1/b2
//
// A restore given one piece restores the chain ending there (its base links followed to
// the full piece); several pieces are an explicit chain, oldest first, checked. Either way
// the image ends equal to the newest snapshot, its size included.
#include <chrono>
#include <iostream>
#include <vector>

#include "framework/chain/chain_restore.h"
#include "framework/client_io/client_io_ex.h"
#include "tools/agentutil/cancel.h"
#include "tools/agentutil/ceph_connection.h"
#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
#include "tools/agentutil/pool_connection.h"
#include "tools/agentutil/progress.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/ceph/ceph_chain_restore.h"
#include "utils/agent/io_connection_factory.h"

namespace {

using json_spirit::Object;

struct Transfer_Args {
  std::string uri;
  std::string from_snap;
  std::string base_piece;
  std::string pool_url;
  std::string options_file;
  std::vector<std::string> pieces;
  int chunk_power = 16;
};

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string rate_text(uint64_t bytes, double seconds) {
  return seconds > 0 ? cli::size_text(static_cast<uint64_t>(bytes / seconds)) + "/s" : "-";
}

int backup(const cli::Ceph_Connection_Args& conn, const Transfer_Args& a) {
  const auto start = std::chrono::steady_clock::now();
  auto client = cli::connect_ceph(conn);
  if (!client) return 1;
  IO_Connection_Factory unused;  // the pool is reached by its URL
  ceph::Ceph_Image_Backup b(unused);
  if (!b.open(*client, a.uri)) return cli::fail("cannot open snapshot " + a.uri);
  Client_IO_Ex io;
  if (!cli::connect_pool(a.pool_url, a.options_file, io)) return 1;
  cli::Progress progress("backing up " + a.uri, cli::Progress::Unit::bytes);
  b.progress_callback() = [&](uint64_t done, uint64_t total) { progress.update(done, total); };
  b.cancel_callback() = [] { return cli::cancel_requested(); };
  ceph::Backup_Totals t;
  const bool ok = a.base_piece.empty()
                      ? b.backup_to(io, a.pieces.front(), a.from_snap, a.chunk_power, &t)
                      : b.backup_after(io, a.pieces.front(), a.base_piece, a.chunk_power, &t);
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("cancelled; no piece was stored");
  if (!ok) return cli::fail("backup of " + a.uri + " failed; no piece was stored");
  const double seconds = seconds_since(start);
  if (cli::options().json) {
    cli::print_json(Object{{"snapshot", a.uri}, {"from", a.from_snap}, {"base", a.base_piece},
                           {"piece", a.pieces.front()},
                           {"image_size", t.image_size}, {"extents", t.extents},
                           {"bytes_read", t.bytes_read}, {"zero_bytes", t.zero_bytes},
                           {"records", t.records}, {"piece_bytes", t.piece_bytes},
                           {"seconds", seconds}});
    return 0;
  }
  cli::print_fields({{"snapshot", a.uri},
                     {"since", !a.base_piece.empty() ? "piece " + a.base_piece
                               : a.from_snap.empty() ? "(full backup)" : a.from_snap},
                     {"piece", a.pieces.front()},
                     {"extents", cli::count_of(t.extents, "extent") + " on a " +
                                     cli::size_text(uint64_t{1} << a.chunk_power) + " grid"},
                     {"read", cli::size_text(t.bytes_read) + " of " + cli::size_text(t.image_size)},
                     {"stored as zeros", cli::size_text(t.zero_bytes)},
                     {"piece size", cli::size_text(t.piece_bytes) + " in " +
                                        cli::count_of(t.records, "record")},
                     {"rate", rate_text(t.bytes_read, seconds)}});
  return 0;
}

int restore(const cli::Ceph_Connection_Args& conn, const Transfer_Args& a) {
  const auto start = std::chrono::steady_clock::now();
  auto client = cli::connect_ceph(conn);
  if (!client) return 1;
  const Piece_Chain::Connect connect = cli::pool_connector(a.pool_url, a.options_file);
  Piece_Chain chain;
  if (!cli::load_chain(connect, a.pieces, chain)) return 1;
  cli::Progress progress("restoring " + chain.newest().name, cli::Progress::Unit::bytes);
  Chain_Callbacks callbacks;
  callbacks.progress = [&](uint64_t done, uint64_t total) { progress.update(done, total); };
  callbacks.cancel = [] { return cli::cancel_requested(); };
  Chain_Totals t;
  const bool ok = ceph::restore_chain_into(*client, a.uri, chain, connect, callbacks, &t);
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("cancelled; the image is incomplete");
  if (!ok) return cli::fail("restore of " + chain.newest().name + " into " + a.uri + " failed");
  const double seconds = seconds_since(start);
  if (cli::options().json) {
    cli::print_json(Object{{"image", a.uri}, {"piece", chain.newest().name}, {"pieces", t.pieces},
                           {"image_size", t.image_size}, {"data_bytes", t.data_bytes},
                           {"zero_bytes", t.zero_bytes}, {"piece_bytes_read", t.piece_bytes_read},
                           {"seconds", seconds}});
    return 0;
  }
  cli::print_fields({{"image", a.uri},
                     {"snapshot", chain.newest().layout.identity.snapshot_name},
                     {"pieces", cli::count_of(t.pieces, "piece") + " ending at " + chain.newest().name},
                     {"image size", cli::size_text(t.image_size)},
                     {"written", cli::size_text(t.data_bytes) + " (" + cli::size_text(t.zero_bytes) + " zeros)"},
                     {"piece bytes read", cli::size_text(t.piece_bytes_read)},
                     {"rate", rate_text(t.data_bytes, seconds)}});
  return 0;
}

void add_pool_options(CLI::App* cmd, Transfer_Args& a, const char* piece_help) {
  cmd->add_option("--pool", a.pool_url, "Pool URL: file:///dir, s3://host:port/bucket, s3s://...")
      ->required();
  cmd->add_option("--piece", a.pieces, piece_help)->required();
  cmd->add_option("--options", a.options_file,
                  "Client I/O options (JSON): S3 keys, encryption key and IV, time-outs");
}

}  // namespace

void add_ceph_transfer_commands(CLI::App* ceph, cli::Ceph_Connection_Args& conn) {
  static Transfer_Args args;
  CLI::App* b = ceph->add_subcommand("backup", "Back up a snapshot into a piece of a pool");
  b->add_option("uri", args.uri, "Snapshot, as ceph://pool/image@snap")->required();
  b->add_option("--base", args.base_piece,
                "Piece of an older snapshot of this image in the same pool: an incremental linked to it");
  b->add_option("--from", args.from_snap,
                "Older snapshot, for an incremental not linked to a piece (restored only in an explicit chain)")
      ->excludes("--base");
  b->add_option("--chunk-power", args.chunk_power, "Chunk size as a power of two (16: 64 KiB)")
      ->check(CLI::Range(ceph::MIN_CHANGED_BLOCK_POWER, ceph::MAX_CHANGED_BLOCK_POWER))
      ->capture_default_str();
  add_pool_options(b, args, "Name of the piece to write");
  b->get_option("--piece")->expected(1);
  cli::set_command(b, [&conn] { return backup(conn, args); });

  CLI::App* r = ceph->add_subcommand("restore", "Restore a chain of pieces into an image (made if missing)");
  r->add_option("uri", args.uri, "Image, as ceph://pool/image")->required();
  add_pool_options(r, args, "Newest piece of the chain; or every piece, oldest first");
  cli::set_command(r, [&conn] { return restore(conn, args); });
}
