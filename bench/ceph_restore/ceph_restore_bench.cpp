// Restores of a busy 1 GiB image (bench/common/busy_image.h) on the cluster of
// $AGENTUTIL_CEPH_CONF, against the rbd tool in the same run:
//   full restore: a new image made and its full piece written  vs  `rbd import` of the raw
//     export of the same snapshot;
//   incremental restore: the s1..s2 piece written over a restored s1  vs  `rbd import-diff`
//     of `rbd export-diff --from-snap s1` over an imported s1.
// The pieces and the rbd files are made off the clock first; median of five runs each,
// alternating which side goes first.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/common/busy_image.h"
#include "bench/common/quiet_cluster.h"
#include "bench/common/run_command.h"
#include "bench/common/timing.h"
#include "framework/client_io/client_io_ex.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/ceph/ceph_image_writer.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/io_connection_factory.h"

namespace {

constexpr int RUNS = 5;
// The changed-extent grid: 4 KiB, the granularity the rbd tool's diff files have.
constexpr int CHUNK_POWER = 12;
constexpr const char* POOL = "rbd";

struct Bench {
  std::string conf, dir, source, target;
  IO_Connection_Factory unused;  // pools are reached by URL

  bool connect(ceph::Ceph_Client& client) { return client.set_configs(conf) && client.connect(); }

  bool backup(const std::string& snap, const std::string& from, const std::string& piece) {
    ceph::Ceph_Client client("admin", true);
    ceph::Ceph_Image_Backup b(unused);
    Client_IO_Ex io;
    return connect(client) && b.open(client, "ceph://" + std::string(POOL) + "/" + source + "@" + snap) &&
           io.connect("file://" + dir, Client_IO_Base::Options()) && b.backup_to(io, piece, from, CHUNK_POWER, nullptr);
  }

  // A new image of the source's size, then each piece in order: what `agentutil ceph
  // restore` does.
  bool restore(const std::vector<std::string>& pieces) {
    ceph::Ceph_Client client("admin", true);
    ceph::Ceph_Pool pool;
    ceph::Ceph_Image image;
    if (!connect(client) || !client.open_pool(POOL, pool) ||
        !pool.new_image(target, cephbench::BUSY_IMAGE_SIZE, image, 1 | 4 | 8 | 16 | 32, 22, 0, 0, false))
      return false;
    ceph::Ceph_Image_Writer w(unused);
    if (!w.open(client, "ceph://" + std::string(POOL) + "/" + target)) return false;
    for (const std::string& p : pieces) {
      Client_IO_Ex io;
      if (!io.connect("file://" + dir, Client_IO_Base::Options()) || !w.write_from(io, p, 4 << 20, nullptr))
        return false;
    }
    return true;
  }

  bool rbd(const std::vector<std::string>& args) { return cephbench::run_rbd(conf, args, nullptr); }

  double timed(const std::function<bool()>& before, const std::function<bool()>& f) {
    return cephbench::timed_run(conf, POOL, target, before, f);
  }
};

int failed() {
  std::fprintf(stderr, "bench_ceph_restore: a run failed\n");
  return 1;
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const char* conf = cephbench::sandbox_conf("bench_ceph_restore");
  const std::string dir = cephbench::scratch_dir("bench-ceph-restore");
  if (conf == nullptr || dir.empty()) return 1;
  const std::string pid = std::to_string(::getpid());
  cephbench::Scratch_Image image(conf, POOL, "bench-restore-src-" + pid);
  if (!cephbench::make_busy_image(image, dir)) return 1;
  Bench b{conf, dir, image.name(), "bench-restore-dst-" + pid, {}};
  const std::string raw = dir + "/s1.raw", diff = dir + "/s1-s2.diff";
  if (!b.backup("s1", "", "full") || !b.backup("s2", "s1", "incr") ||
      !b.rbd({"export", "--no-progress", image.qualified_name() + "@s1", raw}) ||
      !b.rbd({"export-diff", "--no-progress", "--from-snap", "s1", image.qualified_name() + "@s2", diff})) {
    std::fprintf(stderr, "bench_ceph_restore: the pieces or the rbd files could not be made\n");
    return 1;
  }
  const std::string target = std::string(POOL) + "/" + b.target;
  const auto nothing = [] { return true; };

  const bench::Paired_Medians full = bench::alternate(
      RUNS, [&] { return b.timed(nothing, [&] { return b.restore({"full"}); }); },
      [&] {
        return b.timed(nothing, [&] {
          return b.rbd({"import", "--no-progress", "--object-size", "4M", raw, target});
        });
      });
  if (!full.ok()) return failed();
  bench::print_comparison("ceph full restore vs rbd import", full.ours, full.peer);

  const bench::Paired_Medians incr = bench::alternate(
      RUNS,
      [&] {
        return b.timed([&] { return b.restore({"full"}); }, [&] {
          ceph::Ceph_Client client("admin", true);
          ceph::Ceph_Image_Writer w(b.unused);
          Client_IO_Ex io;
          return b.connect(client) && w.open(client, "ceph://" + target) &&
                 io.connect("file://" + dir, Client_IO_Base::Options()) &&
                 w.write_from(io, "incr", 4 << 20, nullptr);
        });
      },
      [&] {
        return b.timed([&] {
          return b.rbd({"import", "--no-progress", "--object-size", "4M", raw, target}) &&
                 b.rbd({"snap", "create", "--no-progress", target + "@s1"});
        }, [&] { return b.rbd({"import-diff", "--no-progress", diff, target}); });
      });
  if (!incr.ok()) return failed();
  bench::print_comparison("ceph incremental restore vs rbd import-diff", incr.ours, incr.peer);

  for (const char* f : {"full", "incr", "s1.raw", "s1-s2.diff"}) ::unlink((dir + "/" + f).c_str());
  ::rmdir(dir.c_str());
  return 0;
}
