// What get_changed_blocks refuses before it reaches librbd, what its extent callback makes
// of what librbd reports, and the C callback adapter.
#include "utils/agent/ceph/ceph_snapshot.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/log_capture.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

TEST(Ceph_Snapshot_Checks, chunk_bounds_and_single_bit_alignment_come_before_the_handle) {
  const char* const NOT_OPENED =
      "Failed to diff iterate over snapshots: the destination snapshot is not opened.\n";
  const char* const NO_STAT = "Failed to stat image or snapshot: it wasn't opened.\n";
  struct Case {
    int power;
    Range range;
    const char* check;  // or, when the checks pass, the closed handle's error
  } cases[] = {
      {31, Range(0, 0), "power_of_2(31) > MAX_CHANGED_BLOCK_POWER(30)"},
      {11, Range(0, 0), "power_of_2(11) < MIN_CHANGED_BLOCK_POWER(12)"},
      {12, Range(0, 0), NO_STAT},
      {30, Range(0, 0), NO_STAT},
      {12, Range(4096, 8192), "offset & chunk_size(4096) != 0(0)"},
      {12, Range(0, 12288), "size & chunk_size(4096) != 0(0)"},
      // The 4096 bit is clear in 8192 and in 100: both pass.
      {12, Range(8192, 8192), NOT_OPENED},
      {12, Range(100, 8292), NOT_OPENED},
  };
  ceph::Ceph_Context closed;
  for (const Case& c : cases) {
    au_test::Log_Capture logs;
    Blocks blocks;
    EXPECT_FALSE(ceph::Ceph_Snapshot::get_changed_blocks(closed, "s1", blocks, c.power, c.range,
                                                         false, {}, true, false));
    EXPECT_EQ(1u, logs.records().size()) << logs.dump();
    EXPECT_TRUE(logs.has_check(c.check) || logs.has(LM_ERROR, c.check)) << logs.dump();
  }
}

TEST(Ceph_Snapshot_Checks, c_callback_stops_on_zero_or_null) {
  uint64_t seen = 0;
  ceph::Diff_Callback go_on = [&](uint64_t ofs, uint64_t len, int exists) {
    seen = ofs + len + static_cast<uint64_t>(exists);
    return 1;
  };
  ceph::Diff_Callback stop = [](uint64_t, uint64_t, int) { return 0; };
  EXPECT_EQ(0, ceph::diff_iterate_cb(10, 5, 1, &go_on));
  EXPECT_EQ(16u, seen);
  EXPECT_EQ(-1, ceph::diff_iterate_cb(0, 1, 1, &stop));
  EXPECT_EQ(-1, ceph::diff_iterate_cb(0, 1, 1, nullptr));
}

// librbd's diff iteration replaced by a script of extents, so the extent callback can be
// fed what a real cluster never sends (out-of-range and straddling extents, holes).
struct Extent {
  uint64_t offset, length;
  int exists;
};
std::vector<Extent> script;
int plain_calls = 0, extended_calls = 0;

int replay(int (*cb)(uint64_t, size_t, int, void*), void* arg) {
  for (const Extent& e : script)
    if (int r = cb(e.offset, e.length, e.exists, arg); r < 0) return r;
  return 0;
}

TEST(Ceph_Snapshot_Extents, callback_rounds_skips_holes_checks_range_and_merges) {
  const auto saved = std::make_pair(ceph::rbd_diff_iterate, ceph::rbd_diff_iterate2);
  ceph::rbd_diff_iterate = [](rbd_image_t, const char*, uint64_t, uint64_t,
                              int (*cb)(uint64_t, size_t, int, void*), void* arg) {
    ++plain_calls;
    return replay(cb, arg);
  };
  ceph::rbd_diff_iterate2 = [](rbd_image_t, const char*, uint64_t, uint64_t, uint8_t, uint8_t,
                               int (*cb)(uint64_t, size_t, int, void*), void* arg) {
    ++extended_calls;
    return replay(cb, arg);
  };
  static int dummy = 0;
  ceph::Ceph_Context ctx;
  ctx.img_ctx_ = ceph::Rbd_Image_var(new void*(&dummy), [](void** slot) { delete slot; });
  au_test::Log_Capture logs;

  script = {{4095, 2, 1}, {8192, 4096, 1}, {12288, 100, 1}, {20480, 10, 0}};
  Blocks blocks{{40960, 4096}};
  EXPECT_TRUE(ceph::Ceph_Snapshot::get_changed_blocks(ctx, "s1", blocks, 12, Range(0, 1 << 20),
                                                      true, {}, false, false));
  EXPECT_EQ(Blocks({{0, 4096}, {8192, 8192}, {40960, 4096}}), blocks);
  blocks.clear();
  EXPECT_TRUE(ceph::Ceph_Snapshot::get_changed_blocks(ctx, "s1", blocks, 12, Range(0, 1 << 20),
                                                      false, {}, true, false));
  EXPECT_EQ(Blocks({{0, 4096}, {8192, 8192}, {20480, 4096}}), blocks);
  EXPECT_EQ(1, plain_calls);
  EXPECT_EQ(1, extended_calls);

  // Past the end of the range: the third value printed is the length, not the end.
  for (const Extent& outside : {Extent{4096, 10, 1}, Extent{12288, 8192, 1}}) {
    script = {{8192, 4096, 1}, outside};
    blocks.clear();
    logs.clear();
    EXPECT_FALSE(ceph::Ceph_Snapshot::get_changed_blocks(ctx, "s1", blocks, 12, Range(8192, 8192),
                                                         false, {}, false, false));
    EXPECT_EQ(Blocks({{8192, 4096}}), blocks);  // kept as collected
    EXPECT_TRUE(logs.has(LM_ERROR, "Bitmap iterate callback's offset " + std::to_string(outside.offset) +
                                       " out of range [8192, 8192).\n"))
        << logs.dump();
    EXPECT_TRUE(logs.has(LM_ERROR, "Failed to diff iterate over the desired extends 8192-8192 "
                                   "from snap(s1): code 1, msg Operation not permitted.\n"))
        << logs.dump();
  }

  // A librbd without rbd_diff_iterate2: its plain call includes the parent anyway, so only a
  // whole-object walk is refused, before librbd is called.
  ceph::rbd_diff_iterate2 = nullptr;
  const int plain_before = plain_calls;
  script = {{0, 4096, 1}};
  blocks.clear();
  logs.clear();
  EXPECT_TRUE(ceph::Ceph_Snapshot::get_changed_blocks(ctx, "s1", blocks, 12, Range(0, 1 << 20),
                                                      false, {}, true, false));
  EXPECT_EQ(Blocks({{0, 4096}}), blocks);
  EXPECT_FALSE(ceph::Ceph_Snapshot::get_changed_blocks(ctx, "s1", blocks, 12, Range(0, 1 << 20),
                                                       false, {}, true, true));
  EXPECT_EQ(plain_before + 1, plain_calls);
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to get symbol rbd_diff_iterate2This version of Ceph doesn't "
                                 "support it.\n"))
      << logs.dump();
  std::tie(ceph::rbd_diff_iterate, ceph::rbd_diff_iterate2) = saved;
}

}  // namespace
