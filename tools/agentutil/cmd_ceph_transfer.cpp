// agentutil ceph backup|restore: an RBD snapshot into a piece of a storage pool, and pieces
// back into an image.
//
//   agentutil ceph backup ceph://rbd/vm1@b2 --from b1 --pool file:///backups --piece vm1/b2
//   agentutil ceph restore ceph://rbd/vm1-restored --pool file:///backups --piece vm1/b1 --piece vm1/b2
#include <chrono>
#include <iostream>
#include <vector>

#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/image_block_reader.h"
#include "tools/agentutil/cancel.h"
#include "tools/agentutil/ceph_connection.h"
#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
#include "tools/agentutil/pool_connection.h"
#include "tools/agentutil/progress.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/ceph/ceph_image_writer.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/uri_components.h"
#include "utils/agent/io_connection_factory.h"

namespace {

using json_spirit::Object;

struct Transfer_Args {
  std::string uri;
  std::string from_snap;
  std::string pool_url;
  std::string options_file;
  std::vector<std::string> pieces;
  int chunk_power = 16;
  uint64_t block_size = 4u << 20;
};

// The image features `rbd create` gives by default: layering, exclusive-lock, object-map,
// fast-diff, deep-flatten.
constexpr unsigned long NEW_IMAGE_FEATURES = 1 | 4 | 8 | 16 | 32;
constexpr int NEW_IMAGE_ORDER = 22;  // 4 MiB objects

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
  cli::Progress progress("backing up " + a.uri);
  b.progress_callback() = [&](uint64_t done, uint64_t total) { progress.update(done, total); };
  b.cancel_callback() = [] { return cli::cancel_requested(); };
  ceph::Backup_Totals t;
  const bool ok = b.backup_to(io, a.pieces.front(), a.from_snap, a.chunk_power, &t);
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("cancelled; no piece was stored");
  if (!ok) return cli::fail("backup of " + a.uri + " failed; no piece was stored");
  const double seconds = seconds_since(start);
  if (cli::options().json) {
    cli::print_json(Object{{"snapshot", a.uri}, {"from", a.from_snap}, {"piece", a.pieces.front()},
                           {"image_size", t.image_size}, {"extents", t.extents},
                           {"bytes_read", t.bytes_read}, {"zero_bytes", t.zero_bytes},
                           {"records", t.records}, {"piece_bytes", t.piece_bytes},
                           {"seconds", seconds}});
    return 0;
  }
  cli::print_fields({{"snapshot", a.uri},
                     {"since", a.from_snap.empty() ? "(full backup)" : a.from_snap},
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

// The image bytes a piece covers, and its image size, from its checked index.
bool piece_extent(const Transfer_Args& a, const std::string& piece, uint64_t& image_size,
                  uint64_t& covered) {
  Client_IO_Ex io;
  if (!cli::connect_pool(a.pool_url, a.options_file, io)) return false;
  Piece_Layout l;
  if (!io.open(piece, Client_IO_Base::OPEN_READ, 0, 0))
    return cli::fail("cannot open piece " + piece + ": " + io.last_error()), false;
  if (!Image_Block_Reader::read_layout(&io, l)) return cli::fail("piece " + piece + " is damaged"), false;
  image_size = l.header.image_size;
  covered = 0;
  for (const piece::Record& r : l.records) covered += r.length;
  return true;
}

// The target image, made (or grown) to `size` when it is missing or smaller.
bool prepare_image(ceph::Ceph_Client& client, const std::string& uri, uint64_t size) {
  const ceph::URI_Components c(uri);
  if (c.type != ceph::URI_Components::IMAGE) return cli::fail("not an image URI: " + uri), false;
  ceph::Ceph_Pool pool;
  if (!client.open_pool(c.pool, pool)) return cli::fail("cannot open pool '" + c.pool + "'"), false;
  ceph::Ceph_Image image;
  std::vector<ceph::Image_Spec> images;
  bool exists = false;
  if (!pool.list_image(images)) return cli::fail("cannot list images of '" + c.pool + "'"), false;
  for (const auto& i : images) exists = exists || i.name == c.img;
  if (!exists) {
    if (pool.new_image(c.img, size, image, NEW_IMAGE_FEATURES, NEW_IMAGE_ORDER, 0, 0, false)) return true;
    return cli::fail("cannot create image " + uri), false;
  }
  if (!pool.open_image(c.img, image, false)) return cli::fail("cannot open image " + uri), false;
  if (image.size() >= size || image.resize(size, false, nullptr)) return true;
  return cli::fail("cannot grow image " + uri), false;
}

int restore(const cli::Ceph_Connection_Args& conn, const Transfer_Args& a) {
  const auto start = std::chrono::steady_clock::now();
  auto client = cli::connect_ceph(conn);
  if (!client) return 1;
  uint64_t image_size = 0, covered = 0;
  if (!piece_extent(a, a.pieces.front(), image_size, covered)) return 1;
  if (!prepare_image(*client, a.uri, image_size)) return 1;
  IO_Connection_Factory unused;  // the pool is reached by its URL
  ceph::Ceph_Image_Writer w(unused);
  if (!w.open(*client, a.uri)) return cli::fail("cannot open image " + a.uri);
  w.cancel_callback() = [] { return cli::cancel_requested(); };
  uint64_t written = 0, piece_bytes = 0;
  for (const std::string& piece : a.pieces) {
    if (&piece != &a.pieces.front() && !piece_extent(a, piece, image_size, covered)) return 1;
    Client_IO_Ex io;
    if (!cli::connect_pool(a.pool_url, a.options_file, io)) return 1;
    cli::Progress progress("restoring " + piece);
    uint64_t done = 0, read = 0;
    w.progress_callback() = [&](uint64_t n) { progress.update(done += n, covered); };
    const bool ok = w.write_from(io, piece, a.block_size, &read);
    progress.finish();
    if (cli::cancel_requested()) return cli::fail("cancelled during " + piece);
    if (!ok) return cli::fail("restore of " + piece + " into " + a.uri + " failed");
    written += done;
    piece_bytes += read;
  }
  const double seconds = seconds_since(start);
  if (cli::options().json) {
    cli::print_json(Object{{"image", a.uri}, {"pieces", a.pieces.size()}, {"image_bytes", written},
                           {"piece_bytes_read", piece_bytes}, {"seconds", seconds}});
    return 0;
  }
  cli::print_fields({{"image", a.uri},
                     {"pieces", cli::count_of(a.pieces.size(), "piece")},
                     {"restored", cli::size_text(written)},
                     {"piece bytes read", cli::size_text(piece_bytes)},
                     {"rate", rate_text(written, seconds)}});
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
  b->add_option("--from", args.from_snap, "Older snapshot (none: a full backup)");
  b->add_option("--chunk-power", args.chunk_power, "Chunk size as a power of two (16: 64 KiB)")
      ->check(CLI::Range(ceph::MIN_CHANGED_BLOCK_POWER, ceph::MAX_CHANGED_BLOCK_POWER))
      ->capture_default_str();
  add_pool_options(b, args, "Name of the piece to write");
  b->get_option("--piece")->expected(1);
  cli::set_command(b, [&conn] { return backup(conn, args); });

  CLI::App* r = ceph->add_subcommand("restore", "Restore pieces into an image (made if missing)");
  r->add_option("uri", args.uri, "Image, as ceph://pool/image")->required();
  add_pool_options(r, args, "Piece to restore: a full one, then incremental ones in order");
  r->add_option("--block-size", args.block_size, "Largest write, in bytes")
      ->check(CLI::Range(uint64_t{4096}, uint64_t{64} << 20))
      ->capture_default_str();
  cli::set_command(r, [&conn] { return restore(conn, args); });
}
