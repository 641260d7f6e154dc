#include "bench/ceph_diff/changed_blocks_vs_rbd.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "bench/ceph_diff/rbd_diff_json.h"
#include "bench/common/scratch_image.h"
#include "bench/common/timing.h"
#include "utils/agent/block.h"
#include "utils/agent/ceph/ceph_client.h"

namespace cephbench {

namespace {

constexpr const char* POOL = "rbd";  // every sandbox cluster has it, initialised for RBD
constexpr uint64_t IMAGE_SIZE = 1ULL << 30;
constexpr uint64_t SMALL_WRITE = 4096;
constexpr uint64_t SMALL_WRITES = 4096;
// rbd reports what changed in bytes; the finest grid keeps the two answers comparable.
constexpr int CHUNK_POWER = ceph::MIN_CHANGED_BLOCK_POWER;
constexpr uint64_t CHUNK = 1ULL << CHUNK_POWER;
constexpr int REPETITIONS = 9;

bool prepare(Scratch_Image& image, const ceph::Cancel_Callback& cancelled) {
  std::fprintf(stderr, "setting up %s: 1 GiB written, s1, %" PRIu64 " writes of 4 KiB, s2\n",
               image.qualified_name().c_str(), SMALL_WRITES);
  return image.create(IMAGE_SIZE) && !cancelled() && image.fill(IMAGE_SIZE) && !cancelled() &&
         image.snapshot("s1") && !cancelled() && image.scatter(SMALL_WRITE, SMALL_WRITES) &&
         !cancelled() && image.snapshot("s2");
}

bool changed_since_s1(ceph::Ceph_Snapshot& s2, const ceph::Cancel_Callback& cancelled,
                      Blocks& blocks) {
  blocks.clear();
  return s2.get_changed_blocks("s1", blocks, CHUNK_POWER, Range(0, 0), false, cancelled, false,
                               false);
}

// The work the rbd command does for the same answer: connect from the conf file, open s2
// read-only, scan from s1, let everything go again.
bool changed_from_scratch(const Scratch_Image& image, const ceph::Cancel_Callback& cancelled,
                          Blocks& blocks) {
  ceph::Ceph_Client client("admin", true);
  if (!client.set_configs(image.conf()) || !client.connect()) return false;
  ceph::Ceph_Snapshot s2;
  return client.open_snapshot(image.pool(), image.name(), "s2", s2, true) &&
         changed_since_s1(s2, cancelled, blocks);
}

bool rbd_diff(const Scratch_Image& image, std::string& out) {
  out.clear();
  return run_rbd(image.conf(),
                 {"diff", "--from-snap", "s1", image.qualified_name() + "@s2", "--format", "json"},
                 &out);
}

// Same extents, hence same bytes, on both sides; says what differs when not.
bool agree(const Blocks& ours, const Blocks& peer, const char* what) {
  if (ours == peer) return true;
  std::fprintf(stderr,
               "%s: the library found %zu extents, %" PRIu64
               " bytes; rbd diff %zu extents, "
               "%" PRIu64 " bytes\n",
               what, ours.size(), total_bytes(ours), peer.size(), total_bytes(peer));
  return false;
}

struct Samples {
  std::vector<double> ours;       // connect + open + scan, as the command does
  std::vector<double> scan_only;  // get_changed_blocks on a snapshot kept open
  std::vector<double> peer;
};

// One timed run of each, the order swapped every repetition so neither side always goes
// first after the other has warmed the cluster. Every answer is checked against `expected`.
bool measure_once(const Scratch_Image& image, ceph::Ceph_Snapshot& s2, const Blocks& expected,
                  const ceph::Cancel_Callback& cancelled, bool peer_first, Samples& samples) {
  Blocks blocks;
  std::string out;
  bool ok = true;
  auto run_peer = [&] {
    bench::Wall_Clock clock;
    ok = ok && rbd_diff(image, out);
    samples.peer.push_back(clock.ms());
    Blocks parsed;
    ok = ok && read_rbd_diff(out, CHUNK, parsed) && agree(expected, parsed, "rbd diff");
  };
  if (peer_first) run_peer();
  {
    bench::Wall_Clock clock;
    ok = ok && changed_from_scratch(image, cancelled, blocks);
    samples.ours.push_back(clock.ms());
    ok = ok && agree(blocks, expected, "get_changed_blocks");
  }
  if (!peer_first) run_peer();
  bench::Wall_Clock clock;
  ok = ok && changed_since_s1(s2, cancelled, blocks);
  samples.scan_only.push_back(clock.ms());
  return ok && agree(blocks, expected, "get_changed_blocks on an open snapshot");
}

// The untimed first round: both answers, which must agree before anything is timed.
bool reference_answer(const Scratch_Image& image, const ceph::Cancel_Callback& cancelled,
                      Blocks& expected) {
  Blocks ours;
  std::string out;
  if (!changed_from_scratch(image, cancelled, ours) || !rbd_diff(image, out) ||
      !read_rbd_diff(out, CHUNK, expected) || !agree(ours, expected, "first run"))
    return false;
  std::printf("changed from s1 to s2 on a 4 KiB grid: %zu extents, %" PRIu64
              " bytes, the same from both\n",
              expected.size(), total_bytes(expected));
  return true;
}

bool measure(const Scratch_Image& image, const ceph::Cancel_Callback& cancelled) {
  Blocks expected;
  if (!reference_answer(image, cancelled, expected)) return false;
  ceph::Ceph_Client client("admin", true);
  ceph::Ceph_Snapshot s2;
  if (!client.set_configs(image.conf()) || !client.connect() ||
      !client.open_snapshot(image.pool(), image.name(), "s2", s2, true))
    return false;
  Samples samples;
  for (int r = 0; r < REPETITIONS; ++r) {
    if (cancelled() || !measure_once(image, s2, expected, cancelled, r % 2 == 1, samples))
      return false;
  }
  const double ours = bench::median(samples.ours), peer = bench::median(samples.peer);
  bench::print_comparison("ceph changed blocks vs rbd diff", ours, peer);
  std::printf(
      "  (wall medians of %d; ours: connect, open s2, get_changed_blocks from s1, close;"
      " peer: rbd diff --format json, output read whole, parsed after the clock;"
      " get_changed_blocks alone on an open snapshot: %.1f ms)\n",
      REPETITIONS, bench::median(samples.scan_only));
  return true;
}

}  // namespace

int compare_changed_blocks_with_rbd_diff(const std::string& conf,
                                         const ceph::Cancel_Callback& cancelled) {
  Scratch_Image image(conf, POOL, "cephbench-diff-" + std::to_string(::getpid()));
  if (!prepare(image, cancelled)) {
    std::fprintf(stderr, "ceph changed blocks vs rbd diff: image setup failed\n");
    return 1;
  }
  if (!measure(image, cancelled)) {
    std::fprintf(stderr, "ceph changed blocks vs rbd diff: not measured (see above)\n");
    return 1;
  }
  return 0;
}

}  // namespace cephbench
