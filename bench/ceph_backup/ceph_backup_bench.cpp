// Backups of a busy 1 GiB image (bench/common/busy_image.h) on the cluster of
// $AGENTUTIL_CEPH_CONF, against the rbd tool in the same run:
//   full backup of @s1 into a piece of a directory pool  vs  `rbd export` of @s1 to a file;
//   incremental backup s1..s2                             vs  `rbd export-diff --from-snap s1`;
// each side's output synced to disk, median of five runs each, alternating which goes first, with the stored bytes beside.
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/common/busy_image.h"
#include "bench/common/run_command.h"
#include "bench/common/timing.h"
#include "framework/client_io/client_io_ex.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/io_connection_factory.h"

namespace {

constexpr int RUNS = 5;
// The changed-extent grid: 4 KiB, the granularity the rbd tool's diff files have.
constexpr int CHUNK_POWER = 12;

struct Bench {
  std::string conf, dir;
  cephbench::Scratch_Image& image;

  // Connect, open, back up, publish (fsync): what an agent's backup job does.
  bool ours(const std::string& snap, const std::string& from, uint64_t& piece_bytes) {
    ceph::Ceph_Client client("admin", true);
    if (!client.set_configs(conf) || !client.connect()) return false;
    IO_Connection_Factory unused;
    ceph::Ceph_Image_Backup b(unused);
    Client_IO_Ex io;
    ceph::Backup_Totals t;
    if (!b.open(client, "ceph://" + image.qualified_name() + "@" + snap) ||
        !io.connect("file://" + dir, Client_IO_Base::Options()) ||
        !b.backup_to(io, "piece", from, CHUNK_POWER, &t))
      return false;
    piece_bytes = t.piece_bytes;
    return true;
  }

  bool peer(const std::vector<std::string>& args, const std::string& file) {
    std::vector<std::string> argv = args;
    argv.push_back(file);
    return cephbench::run_rbd(conf, argv, nullptr) && cephbench::run_command({"sync", file}, nullptr);
  }

  // One run's milliseconds, or -1 when it failed; `leftover` is removed off the clock.
  static double timed(const std::function<bool()>& f, const std::string& leftover) {
    bench::Wall_Clock c;
    const bool ok = f();
    const double ms = c.ms();
    ::unlink(leftover.c_str());
    return ok ? ms : -1;
  }
};

int failed() {
  std::fprintf(stderr, "bench_ceph_backup: a run failed\n");
  return 1;
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const char* conf = cephbench::sandbox_conf("bench_ceph_backup");
  const std::string dir = cephbench::scratch_dir("bench-ceph-backup");
  if (conf == nullptr || dir.empty()) return 1;
  cephbench::Scratch_Image image(conf, "rbd", "bench-backup-" + std::to_string(::getpid()));
  if (!cephbench::make_busy_image(image, dir)) return 1;
  Bench b{conf, dir, image};
  const std::string piece = dir + "/piece", file = dir + "/peer.out";
  uint64_t full_piece = 0, incr_piece = 0, full_file = 0, incr_file = 0;

  const bench::Paired_Medians full = bench::alternate(
      RUNS, [&] { return b.timed([&] { return b.ours("s1", "", full_piece); }, piece); },
      [&] {
        return b.timed([&] {
          return b.peer({"export", "--no-progress", image.qualified_name() + "@s1"}, file) &&
                 (full_file = cephbench::file_size(file)) > 0;
        }, file);
      });
  if (!full.ok()) return failed();
  bench::print_comparison("ceph full backup vs rbd export", full.ours, full.peer);
  std::printf("  (1 GiB image: piece %" PRIu64 " bytes, rbd export %" PRIu64 " bytes)\n", full_piece,
              full_file);

  const bench::Paired_Medians incr = bench::alternate(
      RUNS, [&] { return b.timed([&] { return b.ours("s2", "s1", incr_piece); }, piece); },
      [&] {
        return b.timed([&] {
          return b.peer({"export-diff", "--no-progress", "--from-snap", "s1",
                         image.qualified_name() + "@s2"}, file) &&
                 (incr_file = cephbench::file_size(file)) > 0;
        }, file);
      });
  if (!incr.ok()) return failed();
  bench::print_comparison("ceph incremental backup vs rbd export-diff", incr.ours, incr.peer);
  std::printf("  (stored bytes: piece %" PRIu64 ", rbd export-diff %" PRIu64 ", ratio %.2f)\n",
              incr_piece, incr_file, incr_file ? double(incr_piece) / double(incr_file) : 0.0);
  ::rmdir(dir.c_str());
  return 0;
}
