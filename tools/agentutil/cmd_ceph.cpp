// agentutil ceph: what an incremental backup agent asks of a cluster, from a shell.
//
//   agentutil ceph --conf /etc/ceph/ceph.conf changed-blocks ceph://rbd/vm1@b2 --from b1
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <vector>

#include "tools/agentutil/cancel.h"
#include "tools/agentutil/ceph_connection.h"
#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
#include "tools/agentutil/progress.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;

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

int list_pools(const Ceph_Args& a) {
  auto client = cli::connect_ceph(a.conn);
  if (!client) return 1;
  std::vector<std::string> pools;
  if (!client->list_pool(pools)) return cli::fail("cannot list pools");
  if (cli::options().json) {
    cli::print_json(Array(pools.begin(), pools.end()));
    return 0;
  }
  cli::Table table({"POOL"});
  for (const auto& p : pools) table.add({p});
  if (table.empty()) std::cout << "no pools\n";
  else table.print(std::cout);
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
    cli::print_json(out);
    return 0;
  }
  cli::Table table({"IMAGE", "ID"});
  for (const auto& i : images) table.add({i.name, i.id});
  if (table.empty()) std::cout << "no images in pool '" << a.pool << "'\n";
  else table.print(std::cout);
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
    for (const auto& s : snaps) out.emplace_back(Object{{"id", s.id}, {"name", s.name}, {"size", s.size}});
    cli::print_json(out);
    return 0;
  }
  cli::Table table({"SNAPSHOT", "ID", "SIZE"});
  for (const auto& s : snaps) table.add({s.name, std::to_string(s.id), cli::size_text(s.size)});
  if (table.empty()) std::cout << "no snapshots of " << a.uri << "\n";
  else table.print(std::cout);
  return 0;
}

// The raw extents librbd reports, before any rounding or merging.
int raw_diff(const Ceph_Args& a) {
  auto client = cli::connect_ceph(a.conn);
  if (!client) return 1;
  cli::Progress progress("extents");
  Blocks extents;
  std::vector<bool> data;
  // The library's extent callbacks go on while the function returns non-zero.
  const bool ok = client->diff_iterate(a.uri, a.from_snap, [&](unsigned long off, unsigned long len, int exists) {
    extents.emplace_back(off, len);
    data.push_back(exists != 0);
    return progress.update(extents.size(), 0) ? 1 : 0;
  });
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("cancelled");
  if (!ok) return cli::fail("cannot diff " + a.uri);
  uint64_t data_bytes = 0, zero_bytes = 0;
  for (std::size_t i = 0; i < extents.size(); ++i) (data[i] ? data_bytes : zero_bytes) += extents[i].length;
  if (cli::options().json) {
    Array rows;
    for (std::size_t i = 0; i < extents.size(); ++i)
      rows.emplace_back(Object{{"offset", extents[i].offset}, {"length", extents[i].length}, {"exists", bool(data[i])}});
    cli::print_json(Object{{"extents", rows}, {"data_bytes", data_bytes}, {"zero_bytes", zero_bytes}});
    return 0;
  }
  std::cout << cli::count_of(extents.size(), "extent") << ": " << cli::size_text(data_bytes) << " of data, "
            << cli::size_text(zero_bytes) << " zeroed; offsets and lengths in bytes\n";
  if (extents.empty()) return 0;
  cli::Table table({"OFFSET", "LENGTH", "CONTENT"});
  for (std::size_t i = 0; i < extents.size(); ++i)
    table.add({std::to_string(extents[i].offset), std::to_string(extents[i].length), data[i] ? "data" : "zero"});
  table.print(std::cout);
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
                      : snap.get_changed_blocks(a.from_snap, blocks, a.chunk_power, Range(0, 0), false, cancel,
                                                false, false);
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("cancelled");
  if (!ok) return cli::fail("cannot compute changed blocks of " + a.uri);
  cli::print_changed_blocks(blocks, uint64_t(1) << a.chunk_power, snap.size());
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

// Copies `length` bytes from `offset` of the snapshot to `fd`; "" or what went wrong.
std::string copy_bytes(ceph::Ceph_Snapshot& snap, uint64_t offset, uint64_t length, int fd, uint64_t& done) {
  constexpr uint64_t STEP = 4 << 20;
  std::vector<char> buf(STEP);
  cli::Progress progress("reading", cli::Progress::Unit::bytes);
  for (done = 0; done < length;) {
    const uint64_t n = std::min(STEP, length - done);
    const int r = snap.read(offset + done, n, buf.data(), 0);
    if (r < 0) return "read failed at offset " + std::to_string(offset + done);
    if (!write_all(fd, buf.data(), static_cast<size_t>(r))) return "cannot write the output";
    if (r == 0) break;
    done += static_cast<uint64_t>(r);
    if (!progress.update(done, length)) return "cancelled";
  }
  return "";
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
  uint64_t done = 0;
  const std::string error = copy_bytes(snap, a.offset, length, fd, done);
  if (fd != STDOUT_FILENO && ::close(fd) != 0 && error.empty()) return cli::fail("cannot write " + a.out);
  if (!error.empty()) return cli::fail(error);
  if (a.out.empty()) return 0;  // the bytes themselves went to standard output
  if (cli::options().json)
    cli::print_json(Object{{"file", a.out}, {"offset", a.offset}, {"bytes", done}});
  else
    std::cout << "wrote " << cli::count_of(done, "byte") << " from offset " << a.offset << " to " << a.out << "\n";
  return 0;
}

}  // namespace

void add_ceph_commands(CLI::App& app) {
  static Ceph_Args args;
  CLI::App* ceph = app.add_subcommand("ceph", "Ceph RBD pools, images, snapshots and changed blocks");
  ceph->require_subcommand(1);
  cli::add_ceph_connection_options(ceph, args.conn);

  cli::set_command(ceph->add_subcommand("pools", "List pools"), [] { return list_pools(args); });

  CLI::App* images = ceph->add_subcommand("images", "List the images of a pool");
  images->add_option("pool", args.pool, "Pool name")->required();
  cli::set_command(images, [] { return list_images(args); });

  CLI::App* snaps = ceph->add_subcommand("snaps", "List the snapshots of an image");
  snaps->add_option("uri", args.uri, "Image, as ceph://pool/image")->required();
  cli::set_command(snaps, [] { return list_snaps(args); });

  CLI::App* diff = ceph->add_subcommand("diff", "Raw extents librbd reports for a snapshot or image");
  diff->add_option("uri", args.uri, "ceph://pool/image@snap or ceph://pool/image")->required();
  diff->add_option("--from", args.from_snap, "Older snapshot to compare with");
  cli::set_command(diff, [] { return raw_diff(args); });

  CLI::App* changed = ceph->add_subcommand("changed-blocks", "Byte extents an incremental backup reads");
  changed->add_option("uri", args.uri, "Snapshot, as ceph://pool/image@snap")->required();
  changed->add_option("--from", args.from_snap, "Older snapshot (none: every allocated extent)");
  changed->add_option("--chunk-power", args.chunk_power, "Chunk size as a power of two (16: 64 KiB)")
      ->check(CLI::Range(ceph::MIN_CHANGED_BLOCK_POWER, ceph::MAX_CHANGED_BLOCK_POWER))
      ->capture_default_str();
  cli::set_command(changed, [] { return changed_blocks(args); });

  CLI::App* read = ceph->add_subcommand("read", "Read bytes of a snapshot");
  read->add_option("uri", args.uri, "Snapshot, as ceph://pool/image@snap")->required();
  read->add_option("--offset", args.offset, "First byte");
  read->add_option("--length", args.length, "Byte count (default: to the end)");
  read->add_option("-o,--out", args.out, "Output file (default: standard output)");
  cli::set_command(read, [] { return read_bytes(args); });

  add_ceph_transfer_commands(ceph, args.conn);
}
