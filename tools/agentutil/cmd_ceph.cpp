// agentutil ceph: what an incremental backup agent asks of a cluster, from a shell.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <vector>

#include "framework/json/writer.h"
#include "tools/agentutil/cancel.h"
#include "tools/agentutil/ceph_connection.h"
#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/progress.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_snapshot.h"
#include "utils/agent/ceph/uri_components.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

struct Ceph_Args {
  cli::Ceph_Connection_Args conn;
  std::string pool;
  std::string uri;
  std::string from_snap;
  int chunk_power = 16;
  uint64_t offset = 0;
  uint64_t length = 0;
  std::string out;
};

void print_json(const Value& v) { std::cout << json_spirit::write(v, true) << "\n"; }

int list_pools(const Ceph_Args& a) {
  auto client = cli::connect_ceph(a.conn);
  if (!client) return 1;
  std::vector<std::string> pools;
  if (!client->list_pool(pools)) return cli::fail("cannot list pools");
  if (cli::options().json) {
    print_json(Array(pools.begin(), pools.end()));
  } else {
    for (const auto& p : pools) std::cout << p << "\n";
  }
  return 0;
}

int list_images(const Ceph_Args& a) {
  auto client = cli::connect_ceph(a.conn);
  if (!client) return 1;
  ceph::Ceph_Pool pool;
  if (!client->open_pool(a.pool, pool)) return cli::fail("cannot open pool '" + a.pool + "'");
  std::vector<ceph::Image_Spec> images;
  if (!pool.list_image(images)) return cli::fail("cannot list images of '" + a.pool + "'");
  if (cli::options().json) {
    Array out;
    for (const auto& i : images) out.emplace_back(Object{{"id", i.id}, {"name", i.name}});
    print_json(out);
  } else {
    for (const auto& i : images) std::cout << i.name << "\n";
  }
  return 0;
}

int list_snaps(const Ceph_Args& a) {
  auto client = cli::connect_ceph(a.conn);
  if (!client) return 1;
  ceph::Ceph_Image image;
  if (!client->open_image(a.uri, image, true)) return cli::fail("cannot open image " + a.uri);
  std::vector<ceph::Snapshot_Info> snaps;
  if (!image.list_snapshot(snaps)) return cli::fail("cannot list snapshots of " + a.uri);
  if (cli::options().json) {
    Array out;
    for (const auto& s : snaps)
      out.emplace_back(Object{{"id", s.id}, {"name", s.name}, {"size", s.size}});
    print_json(out);
  } else {
    for (const auto& s : snaps) std::cout << s.name << "\t" << s.size << " bytes\n";
  }
  return 0;
}

// The raw extents librbd reports, before any rounding or merging.
int raw_diff(const Ceph_Args& a) {
  auto client = cli::connect_ceph(a.conn);
  if (!client) return 1;
  cli::Progress progress("extents");
  uint64_t count = 0;
  Array rows;
  const bool ok = client->diff_iterate(a.uri, a.from_snap, [&](unsigned long off, unsigned long len, int exists) {
    if (!progress.update(++count, 0)) return -ECANCELED;
    if (cli::options().json)
      rows.emplace_back(Object{{"offset", uint64_t(off)}, {"length", uint64_t(len)}, {"exists", exists != 0}});
    else
      std::cout << off << "\t" << len << "\t" << (exists ? "data" : "zero") << "\n";
    return 0;
  });
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("cancelled");
  if (!ok) return cli::fail("cannot diff " + a.uri);
  if (cli::options().json) print_json(rows);
  return 0;
}

int changed_blocks(const Ceph_Args& a) {
  auto client = cli::connect_ceph(a.conn);
  if (!client) return 1;
  ceph::Ceph_Snapshot snap;
  if (!client->open_snapshot(a.uri, snap, true)) return cli::fail("cannot open snapshot " + a.uri);
  cli::Progress progress("extents scanned");
  uint64_t seen = 0;
  // librbd calls the cancel check once per extent: it doubles as the progress tick.
  auto cancel = [&] { return !progress.update(++seen, 0); };
  Blocks blocks;
  const bool ok = a.from_snap.empty()
                      ? snap.get_allocated_blocks(blocks, a.chunk_power, Range(0, 0), false, cancel)
                      : snap.get_changed_blocks(a.from_snap, blocks, a.chunk_power, Range(0, 0),
                                                false, cancel, false, false);
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("cancelled");
  if (!ok) return cli::fail("cannot compute changed blocks of " + a.uri);

  uint64_t changed = 0;
  for (const auto& b : blocks) changed += b.length;
  const uint64_t full = snap.size();
  if (cli::options().json) {
    Array rows;
    for (const auto& b : blocks) rows.emplace_back(Object{{"offset", b.offset}, {"length", b.length}});
    print_json(Object{{"extents", rows}, {"changed_bytes", changed}, {"image_bytes", full},
                      {"chunk_size", uint64_t(1) << a.chunk_power}});
    return 0;
  }
  for (const auto& b : blocks) std::cout << b.offset << "\t" << b.length << "\n";
  std::cout << blocks.size() << " extents, " << changed << " of " << full << " bytes ("
            << (full ? 100.0 * static_cast<double>(changed) / static_cast<double>(full) : 0.0)
            << "%) to read at " << (uint64_t(1) << a.chunk_power) << "-byte chunks\n";
  return 0;
}

bool write_all(int fd, const char* p, size_t n) {
  while (n > 0) {
    const ssize_t w = ::write(fd, p, n);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return false;
    p += w;
    n -= static_cast<size_t>(w);
  }
  return true;
}

int read_bytes(const Ceph_Args& a) {
  auto client = cli::connect_ceph(a.conn);
  if (!client) return 1;
  ceph::Ceph_Snapshot snap;
  if (!client->open_snapshot(a.uri, snap, true)) return cli::fail("cannot open snapshot " + a.uri);
  const uint64_t size = snap.size();
  if (a.offset > size) return cli::fail("offset beyond the end of " + a.uri);
  const uint64_t length = a.length ? std::min(a.length, size - a.offset) : size - a.offset;
  const int fd = a.out.empty() ? STDOUT_FILENO : ::open(a.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
  if (fd < 0) return cli::fail("cannot create " + a.out + ": " + std::strerror(errno));
  constexpr uint64_t STEP = 4 << 20;
  std::vector<char> buf(STEP);
  cli::Progress progress("reading");
  std::string error;
  for (uint64_t done = 0; done < length && error.empty();) {
    const uint64_t n = std::min(STEP, length - done);
    const int r = snap.read(a.offset + done, n, buf.data(), 0);
    if (r < 0) error = "read failed at offset " + std::to_string(a.offset + done);
    else if (!write_all(fd, buf.data(), static_cast<size_t>(r))) error = "cannot write output";
    else if (r == 0) break;
    else done += static_cast<uint64_t>(r);
    if (error.empty() && !progress.update(done, length)) error = "cancelled";
  }
  progress.finish();
  if (fd != STDOUT_FILENO) ::close(fd);
  const int status = error.empty() ? 0 : cli::fail(error);
  return status;
}

CLI::App* add_command(CLI::App* family, const char* name, const char* what, Ceph_Args& args) {
  CLI::App* cmd = family->add_subcommand(name, what);
  cli::add_ceph_connection_options(cmd, args.conn);
  return cmd;
}

}  // namespace

void add_ceph_commands(CLI::App& app) {
  static Ceph_Args args;
  CLI::App* ceph = app.add_subcommand("ceph", "Ceph RBD pools, images, snapshots and changed blocks");
  ceph->require_subcommand(1);

  cli::set_command(add_command(ceph, "pools", "List pools", args), [] { return list_pools(args); });

  CLI::App* images = add_command(ceph, "images", "List the images of a pool", args);
  images->add_option("pool", args.pool, "Pool name")->required();
  cli::set_command(images, [] { return list_images(args); });

  CLI::App* snaps = add_command(ceph, "snaps", "List the snapshots of an image", args);
  snaps->add_option("uri", args.uri, "Image, as ceph://pool/image")->required();
  cli::set_command(snaps, [] { return list_snaps(args); });

  CLI::App* diff = add_command(ceph, "diff", "Raw extents librbd reports for a snapshot or image", args);
  diff->add_option("uri", args.uri, "ceph://pool/image@snap or ceph://pool/image")->required();
  diff->add_option("--from", args.from_snap, "Older snapshot to compare with");
  cli::set_command(diff, [] { return raw_diff(args); });

  CLI::App* changed = add_command(ceph, "changed-blocks", "Extents an incremental backup reads", args);
  changed->add_option("uri", args.uri, "Snapshot, as ceph://pool/image@snap")->required();
  changed->add_option("--from", args.from_snap, "Older snapshot (none: every allocated extent)");
  changed->add_option("--chunk-power", args.chunk_power, "Chunk size as a power of two")
      ->check(CLI::Range(ceph::MIN_CHANGED_BLOCK_POWER, ceph::MAX_CHANGED_BLOCK_POWER));
  cli::set_command(changed, [] { return changed_blocks(args); });

  CLI::App* read = add_command(ceph, "read", "Read bytes of a snapshot", args);
  read->add_option("uri", args.uri, "Snapshot, as ceph://pool/image@snap")->required();
  read->add_option("--offset", args.offset, "First byte");
  read->add_option("--length", args.length, "Byte count (default: to the end)");
  read->add_option("-o,--out", args.out, "Output file (default: standard output)");
  cli::set_command(read, [] { return read_bytes(args); });
}
