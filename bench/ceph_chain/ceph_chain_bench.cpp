// Backups whose cost follows the change, and chains restored in one pass, on the cluster of
// $AGENTUTIL_CEPH_CONF, against the rbd tool in the same run:
//   a 1 TiB thin image with 64 scattered 4 KiB writes between two snapshots:
//     incremental backup  vs  `rbd export-diff --from-snap`;
//     full backup         vs  `rbd export-diff` without a base;
//   a 512 MiB image written whole, then the same 64 MiB rewritten before each of 8 more
//   snapshots:
//     chain restore (full + 8 incrementals)  vs  restore of one full piece of the last snapshot;
//     chain restore                          vs  `rbd import` + 8 `rbd import-diff`.
// Pieces and rbd files are made off the clock first; median of three runs each,
// alternating which side goes first, each once the cluster is quiet.
#include <unistd.h>

#include <cerrno>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/common/busy_image.h"
#include "bench/common/quiet_cluster.h"
#include "bench/common/scratch_image.h"
#include "bench/common/timing.h"
#include "framework/chain/chain_restore.h"
#include "framework/client_io/client_io_ex.h"
#include "utils/agent/ceph/ceph_chain_restore.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/io_connection_factory.h"

namespace {

constexpr int RUNS = 3;
constexpr int CHUNK_POWER = 12;  // 4 KiB, the grain of the rbd tool's diff files
constexpr int INCREMENTALS = 8;
constexpr uint64_t MiB = 1 << 20;
constexpr const char* POOL = "rbd";

struct Bench {
  std::string conf, dir, target;
  IO_Connection_Factory unused;  // pools are reached by URL

  bool connect(ceph::Ceph_Client& client) { return client.set_configs(conf) && client.connect(); }

  // `base` empty: a full piece.
  bool backup(const cephbench::Scratch_Image& image, const std::string& snap, const std::string& base,
              const std::string& piece) {
    ceph::Ceph_Client client("admin", true);
    ceph::Ceph_Image_Backup b(unused);
    Client_IO_Ex io;
    if (!connect(client) || !b.open(client, "ceph://" + image.qualified_name() + "@" + snap) ||
        !io.connect("file://" + dir, Client_IO_Base::Options()))
      return false;
    return base.empty() ? b.backup_to(io, piece, "", CHUNK_POWER, nullptr)
                        : b.backup_after(io, piece, base, CHUNK_POWER, nullptr);
  }

  bool restore(const std::string& newest) {
    ceph::Ceph_Client client("admin", true);
    const Piece_Chain::Connect pool = [this]() -> std::unique_ptr<Client_IO_Base> {
      auto io = std::make_unique<Client_IO_Ex>();
      if (!io->connect("file://" + dir, Client_IO_Base::Options())) return nullptr;
      return io;
    };
    Piece_Chain chain;
    return connect(client) && chain.load_from_newest(pool, newest) &&
           ceph::restore_chain_into(client, "ceph://" + std::string(POOL) + "/" + target, chain, pool, {}, nullptr);
  }

  bool rbd(const std::vector<std::string>& args) { return cephbench::run_rbd(conf, args, nullptr); }

  double timed(const std::function<bool()>& f, const std::function<bool()>& before = [] { return true; }) {
    return cephbench::timed_run(conf, POOL, target, before, f);
  }
};

bool thin_image_comparisons(Bench& b, const std::string& pid) {
  cephbench::Scratch_Image image(b.conf, POOL, "bench-chain-thin-" + pid);
  if (!image.create(uint64_t{1} << 40) || !image.scatter(4096, 64) || !image.snapshot("s1") ||
      !image.scatter(4096, 64) || !image.snapshot("s2") || !b.backup(image, "s1", "", "thin-s1")) {
    std::fprintf(stderr, "bench_ceph_chain: the thin image could not be made\n");
    return false;
  }
  const std::string diff = b.dir + "/thin.diff", src = image.qualified_name();
  // rbd export-diff refuses to overwrite its file.
  const auto no_diff = [&] { return ::unlink(diff.c_str()) == 0 || errno == ENOENT; };
  const bench::Paired_Medians incr = bench::alternate(
      RUNS, [&] { return b.timed([&] { return b.backup(image, "s2", "thin-s1", "thin-s2"); }); },
      [&] { return b.timed([&] { return b.rbd({"export-diff", "--no-progress", "--from-snap", "s1", src + "@s2", diff}); }, no_diff); });
  const bench::Paired_Medians full = bench::alternate(
      RUNS, [&] { return b.timed([&] { return b.backup(image, "s2", "", "thin-full"); }); },
      [&] { return b.timed([&] { return b.rbd({"export-diff", "--no-progress", src + "@s2", diff}); }, no_diff); });
  for (const char* f : {"thin-s1", "thin-s2", "thin-full", "thin.diff"}) ::unlink((b.dir + "/" + f).c_str());
  if (!incr.ok() || !full.ok()) return false;
  bench::print_comparison("1 TiB thin image, incremental backup vs rbd export-diff", incr.ours, incr.peer);
  bench::print_comparison("1 TiB thin image, full backup vs rbd export-diff without a base", full.ours, full.peer);
  return true;
}

bool chain_comparisons(Bench& b, const std::string& pid) {
  cephbench::Scratch_Image image(b.conf, POOL, "bench-chain-src-" + pid);
  std::vector<std::string> diffs;
  bool ok = image.create(512 * MiB) && image.fill(512 * MiB) && image.snapshot("s0") &&
            b.backup(image, "s0", "", "c0") &&
            b.rbd({"export", "--no-progress", image.qualified_name() + "@s0", b.dir + "/s0.raw"});
  for (int i = 1; ok && i <= INCREMENTALS; ++i) {
    const std::string s = "s" + std::to_string(i), prev = "s" + std::to_string(i - 1);
    diffs.push_back(b.dir + "/" + s + ".diff");
    ok = image.fill(64 * MiB) && image.snapshot(s) &&
         b.backup(image, s, "c" + std::to_string(i - 1), "c" + std::to_string(i)) &&
         b.rbd({"export-diff", "--no-progress", "--from-snap", prev, image.qualified_name() + "@" + s, diffs.back()});
  }
  ok = ok && b.backup(image, "s" + std::to_string(INCREMENTALS), "", "last-full");
  if (!ok) {
    std::fprintf(stderr, "bench_ceph_chain: the chain could not be made\n");
    return false;
  }
  const std::string newest = "c" + std::to_string(INCREMENTALS), target = std::string(POOL) + "/" + b.target;
  const auto chain = [&] { return b.timed([&] { return b.restore(newest); }); };
  const bench::Paired_Medians alone =
      bench::alternate(RUNS, chain, [&] { return b.timed([&] { return b.restore("last-full"); }); });
  const bench::Paired_Medians rbd = bench::alternate(RUNS, chain, [&] {
    return b.timed([&] {
      bool done = b.rbd({"import", "--no-progress", "--object-size", "4M", b.dir + "/s0.raw", target}) &&
                  b.rbd({"snap", "create", "--no-progress", target + "@s0"});
      for (size_t i = 0; done && i < diffs.size(); ++i) done = b.rbd({"import-diff", "--no-progress", diffs[i], target});
      return done;
    });
  });
  for (int i = 0; i <= INCREMENTALS; ++i) ::unlink((b.dir + "/c" + std::to_string(i)).c_str());
  for (const std::string& d : diffs) ::unlink(d.c_str());
  for (const char* f : {"last-full", "s0.raw"}) ::unlink((b.dir + "/" + f).c_str());
  if (!alone.ok() || !rbd.ok()) return false;
  bench::print_comparison("chain restore (full + 8 incrementals) vs the last snapshot's full piece", alone.ours,
                          alone.peer);
  bench::print_comparison("chain restore (full + 8 incrementals) vs rbd import + 8 import-diff", rbd.ours, rbd.peer);
  return true;
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const char* conf = cephbench::sandbox_conf("bench_ceph_chain");
  const std::string dir = cephbench::scratch_dir("bench-ceph-chain");
  if (conf == nullptr || dir.empty()) return 1;
  const std::string pid = std::to_string(::getpid());
  Bench b{conf, dir, "bench-chain-dst-" + pid, {}};
  const bool ok = thin_image_comparisons(b, pid) && chain_comparisons(b, pid);
  ::rmdir(dir.c_str());
  if (!ok) std::fprintf(stderr, "bench_ceph_chain: a run failed\n");
  return ok ? 0 : 1;
}
