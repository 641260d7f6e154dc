// Seeded random histories of a sandbox image: writes straddling chunk and object boundaries,
// discards, zero writes, grows and shrinks, snapshots. Every snapshot is backed up into two
// chains (one linked by base pieces at one chunk power, one by base snapshots at a random
// power per piece); random points are restored into new images (by the newest piece, and
// after merging its chain) and over existing ones, and compared with `rbd export`.
//
// AGENTUTIL_HISTORY_SEEDS picks the seeds ("7", "1,5,9", "1-200"); a failure names its seed.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/integration/ceph/backup_fixture.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

using ceph_test::export_sum;
using ceph_test::MiB;
using ceph_test::POOL;

std::vector<uint64_t> history_seeds() {
  const char* text = std::getenv("AGENTUTIL_HISTORY_SEEDS");
  std::vector<uint64_t> seeds;
  for (std::string rest = text != nullptr ? text : "1,2,3"; !rest.empty();) {
    const size_t comma = rest.find(',');
    const std::string item = rest.substr(0, comma);
    rest = comma == std::string::npos ? "" : rest.substr(comma + 1);
    const size_t dash = item.find('-');
    const uint64_t first = std::strtoull(item.c_str(), nullptr, 10);
    const uint64_t last = dash == std::string::npos ? first : std::strtoull(item.c_str() + dash + 1, nullptr, 10);
    for (uint64_t s = first; s <= last; ++s) seeds.push_back(s);
  }
  return seeds;
}

struct Counts {
  int writes = 0, zero_writes = 0, discards = 0, resizes = 0, snapshots = 0, pieces = 0, restores = 0;
};

class Random_History : public ceph_test::Backup_Fixture {
 protected:
  uint64_t pick(uint64_t lo, uint64_t hi) { return lo + rng_() % (hi - lo + 1); }

  // An offset near a boundary of the 4 KiB, 64 KiB or 1 MiB grid (objects are 1 MiB).
  uint64_t near_boundary(uint64_t size) {
    const uint64_t grid = uint64_t{1} << (12 + 4 * pick(0, 2));
    const uint64_t b = pick(0, size / grid) * grid;
    return std::min(size - 1, b > 300 ? b - 300 + pick(0, 600) : pick(0, 600));
  }

  // One random change of the open image `img` of `size` bytes.
  void change(ceph::Ceph_Image& img, uint64_t& size, Counts& n) {
    const uint64_t roll = pick(0, 99);
    if (roll < 12) {  // grow or shrink, to any multiple of 512 bytes in 4-28 MiB
      size = pick(8 * 1024, 56 * 1024) * 512;
      ASSERT_TRUE(img.resize(size, true, nullptr));
      ++n.resizes;
      return;
    }
    const uint64_t offset = near_boundary(size);
    const uint64_t lengths[] = {pick(1, 200), 4096, 8191, pick(1, 3 * MiB / 2)};
    const uint64_t length = std::min(size - offset, lengths[pick(0, 3)]);
    if (roll < 24) {
      ASSERT_LE(0, ceph::rbd_discard(static_cast<rbd_image_t>(*img.context().img_ctx_), offset, length));
      ++n.discards;
      return;
    }
    const char kind = roll < 36 ? 'z' : roll < 70 ? 'r' : 't';
    const std::string data = ceph_test::bytes_of(length, kind, rng_());
    ASSERT_EQ(int(length), img.write(offset, length, data.data(), 0));
    ++(kind == 'z' ? n.zero_writes : n.writes);
  }

  void run(uint64_t seed, Counts& n) {
    rng_.seed(seed);
    ceph_test::Cleanup images;  // each seed's images go when it ends, for long soaks
    images_ = &images;
    struct Noted {
      Random_History* test;
      ~Noted() { test->images_ = &test->cleanup_; }
    } noted{this};
    const std::string src = au_test::unique_ceph_name("hist-" + std::to_string(seed));
    uint64_t size = pick(16 * 1024, 48 * 1024) * 512;
    const std::string features = seed % 3 == 2 ? " --image-feature layering,exclusive-lock" : "";
    ASSERT_TRUE(create(src, size, "--object-size 1M" + features));
    ceph::Ceph_Image img;
    ASSERT_TRUE(pool_.open_image(src, img, false));
    const int snapshots = int(pick(4, 6));
    const int power_a = int(12 + 4 * pick(0, 2));
    std::vector<std::string> a, b;  // piece names of the two chains
    for (int k = 1; k <= snapshots; ++k) {
      for (int ops = int(pick(2, 8)); ops > 0; --ops) {
        change(img, size, n);
        if (HasFatalFailure()) return;
      }
      const std::string s = "h" + std::to_string(k);
      ceph::Ceph_Snapshot snapshot;
      ASSERT_TRUE(img.new_snapshot(s, snapshot));
      ++n.snapshots;
      a.push_back(src + "/a" + std::to_string(k));
      b.push_back(src + "/b" + std::to_string(k));
      const std::string base_a = k == 1 ? "" : a[k - 2], base_b = k == 1 ? "" : "h" + std::to_string(k - 1);
      ASSERT_TRUE(backup(src + "@" + s, base_a, a.back(), power_a, nullptr, k > 1)) << logs_.dump();
      ASSERT_TRUE(backup(src + "@" + s, base_b, b.back(), int(pick(12, 22)))) << logs_.dump();
      n.pieces += 2;
    }
    img.close_image();
    std::map<int, std::string> sums;
    // By the newest piece, merged into one full piece first, as a list over an old image.
    for (int r = 0; r < 3; ++r) {
      const int k = int(pick(1, snapshots));
      const bool merged = r == 1, over_existing = r == 2;
      const std::string target = src + "-r" + std::to_string(r), newest = merged ? src + "/m" : a[k - 1];
      SCOPED_TRACE("restore of h" + std::to_string(k) + (merged ? " merged" : over_existing ? " over an image" : ""));
      ASSERT_TRUE(!merged || consolidate(a[k - 1], newest)) << logs_.dump();
      if (over_existing) {  // mostly larger than the snapshot, sometimes smaller
        const uint64_t was = pick(2, 30) * MiB;
        ASSERT_TRUE(create(target, was, "--object-size 1M"));
        write(target, pick(0, was / MiB - 2) * MiB + 5, MiB, 't');
      }
      const std::vector<std::string> list(b.begin(), b.begin() + k);
      ASSERT_TRUE(over_existing ? restore(target, list, false) : restore(target, {newest}, true)) << logs_.dump();
      if (sums[k].empty()) sums[k] = export_sum(src + "@h" + std::to_string(k));
      ASSERT_EQ(sums[k], export_sum(target));
      ++n.restores;
    }
    std::filesystem::remove_all(dir_ / src);
  }

  std::mt19937_64 rng_;
};

TEST_F(Random_History, restores_equal_the_snapshots_backed_up) {
  Counts n;
  for (const uint64_t seed : history_seeds()) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    run(seed, n);
    if (HasFailure()) {
      ADD_FAILURE() << "history of seed " << seed << " failed (AGENTUTIL_HISTORY_SEEDS=" << seed << " repeats it)";
      return;
    }
    std::printf("seed %llu: %d writes, %d zero writes, %d discards, %d resizes, %d snapshots, %d pieces, %d restores so far\n",
                static_cast<unsigned long long>(seed), n.writes, n.zero_writes, n.discards, n.resizes, n.snapshots, n.pieces, n.restores);
  }
}

}  // namespace
