// What get_changed_blocks refuses before it reaches librbd, and the C callback adapter.
#include "utils/agent/ceph/ceph_snapshot.h"

#include <gtest/gtest.h>

#include "tests/support/log_capture.h"

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

}  // namespace
