// What a snapshot handle refuses before it reaches librbd: chunk bounds, the alignment
// tests, closed handles, and the C callback adapter.
#include "utils/agent/ceph/ceph_snapshot.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/log_capture.h"

namespace {

using ceph::Ceph_Context;
using ceph::Ceph_Snapshot;

const char* const NOT_OPENED =
    "Failed to diff iterate over snapshots: the destination snapshot is not opened.\n";

bool changed(Ceph_Context& ctx, int power, Range range, Blocks& blocks) {
  return Ceph_Snapshot::get_changed_blocks(ctx, "s1", blocks, power, range, false, {}, true,
                                           false);
}

TEST(Ceph_Snapshot_Checks, chunk_power_bounds_come_first) {
  au_test::Log_Capture logs;
  Ceph_Context closed;
  Blocks blocks;
  EXPECT_FALSE(changed(closed, 31, Range(0, 0), blocks));
  EXPECT_TRUE(logs.has_check("power_of_2(31) > MAX_CHANGED_BLOCK_POWER(30)")) << logs.dump();
  EXPECT_FALSE(changed(closed, 11, Range(0, 0), blocks));
  EXPECT_TRUE(logs.has_check("power_of_2(11) < MIN_CHANGED_BLOCK_POWER(12)")) << logs.dump();
  // Neither reached the handle.
  EXPECT_FALSE(logs.has(LM_ERROR, "Failed to stat image or snapshot: it wasn't opened.\n"));

  // 12 and 30 pass the bounds; with no length the closed handle cannot be measured.
  logs.clear();
  EXPECT_FALSE(changed(closed, 12, Range(0, 0), blocks));
  EXPECT_FALSE(changed(closed, 30, Range(0, 0), blocks));
  EXPECT_EQ(2u, logs.count(LM_ERROR, "Failed to stat image or snapshot: it wasn't opened.\n"))
      << logs.dump();
  EXPECT_TRUE(blocks.empty());
}

TEST(Ceph_Snapshot_Checks, alignment_tests_look_at_the_chunk_bit_alone) {
  au_test::Log_Capture logs;
  Ceph_Context closed;
  Blocks blocks;
  EXPECT_FALSE(changed(closed, 12, Range(4096, 8192), blocks));
  EXPECT_TRUE(logs.has_check("offset & chunk_size(4096) != 0(0)")) << logs.dump();
  EXPECT_FALSE(changed(closed, 12, Range(0, 12288), blocks));
  EXPECT_TRUE(logs.has_check("size & chunk_size(4096) != 0(0)")) << logs.dump();

  // 8192 and 100 have the 4096 bit clear: they pass and reach the (closed) handle.
  logs.clear();
  EXPECT_FALSE(changed(closed, 12, Range(8192, 8192), blocks));
  EXPECT_FALSE(changed(closed, 12, Range(100, 8292), blocks));
  EXPECT_EQ(2u, logs.count(LM_ERROR, NOT_OPENED)) << logs.dump();
  EXPECT_EQ(2u, logs.records().size()) << logs.dump();
}

TEST(Ceph_Snapshot_Checks, closed_handle_fails_every_operation) {
  au_test::Log_Capture logs;
  Ceph_Snapshot snap;
  snap.snapshot_name("s2");
  char buf[16];
  EXPECT_FALSE(static_cast<bool>(snap));
  EXPECT_EQ(-EINVAL, snap.read(0, sizeof buf, buf, 0));
  EXPECT_EQ(-EINVAL, snap.write(0, sizeof buf, buf, 0));
  EXPECT_FALSE(snap.flush());
  EXPECT_EQ(0u, snap.size());
  uint64_t features = 0;
  EXPECT_FALSE(snap.get_features(features));
  EXPECT_EQ(-1, snap.update_features(1, true));
  EXPECT_EQ(0u, snap.get_stripe_unit());
  EXPECT_EQ(0u, snap.get_stripe_count());
  EXPECT_EQ("", snap.get_block_name_prefix());
  ceph::Group_Info group;
  EXPECT_FALSE(snap.get_group(group));
  EXPECT_TRUE(logs.has_check("ctx.img_ctx_ is NULL")) << logs.dump();

  logs.clear();
  EXPECT_FALSE(snap.diff_iterate([](uint64_t, uint64_t, int) { return 1; }));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to iterate over snapshot 's2': can't stat its size.\n"))
      << logs.dump();
  EXPECT_FALSE(snap.diff_iterate("s1", [](uint64_t, uint64_t, int) { return 1; }, 0, 0));
  EXPECT_TRUE(
      logs.has(LM_ERROR, "Failed to iterate over snapshot 's1' - 's2': can't stat its size.\n"))
      << logs.dump();
  // With a length given the offset is compared with it, not with offset + length.
  EXPECT_FALSE(snap.diff_iterate("s1", [](uint64_t, uint64_t, int) { return 1; }, 4096, 4096));
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Failed to iterate over snapshots 's1' - 's2': the offset 4096 beyonds "
                       "snapshot's size 4096.\n"))
      << logs.dump();
  EXPECT_FALSE(snap.diff_iterate("s1", [](uint64_t, uint64_t, int) { return 1; }, 100, 4096));
  EXPECT_TRUE(logs.has(LM_ERROR, NOT_OPENED)) << logs.dump();
}

TEST(Ceph_Snapshot_Checks, c_callback_stops_on_zero_or_null) {
  uint64_t seen = 0;
  const ceph::Diff_Callback go_on = [&](uint64_t ofs, uint64_t len, int exists) {
    seen = ofs + len + static_cast<uint64_t>(exists);
    return 1;
  };
  const ceph::Diff_Callback stop = [](uint64_t, uint64_t, int) { return 0; };
  EXPECT_EQ(0, ceph::diff_iterate_cb(10, 5, 1, const_cast<ceph::Diff_Callback*>(&go_on)));
  EXPECT_EQ(16u, seen);
  EXPECT_EQ(-1, ceph::diff_iterate_cb(0, 1, 1, const_cast<ceph::Diff_Callback*>(&stop)));
  EXPECT_EQ(-1, ceph::diff_iterate_cb(0, 1, 1, nullptr));
}

}  // namespace
