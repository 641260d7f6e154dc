// Changed-extent extraction and data access on the sandbox cluster, the way a backup
// agent uses them: write known data, snapshot, change some of it, snapshot again, and
// compare what the library reports with the rbd tool and with the bytes written.
#include <gtest/gtest.h>
#include <rbd/librbd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "framework/json/reader.h"
#include "framework/json/value.h"
#include "tests/integration/ceph/snapshot_test_cluster.h"
#include "tests/support/ceph_env.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_snapshot.h"
#include "utils/agent/ceph/changed_blocks.h"

namespace {

using au_test::Test_Cluster;
using au_test::covers;
using au_test::dump;
using au_test::rbd_diff;
using au_test::within;
using ceph::Ceph_Image;
using ceph::Ceph_Snapshot;

constexpr uint64_t MiB = 1 << 20;
constexpr uint64_t IMAGE_SIZE = 16 * MiB;

// The image "base" snapshot s1 holds `before`; s2 and the head hold `after`.
class Changed_Blocks_On_Cluster : public ::testing::Test {
 protected:
  void SetUp() override {
    AU_REQUIRE_CEPH_OR_SKIP();
    ASSERT_TRUE(cluster_.connect());
    name_ = au_test::unique_ceph_name("snap");
    ASSERT_TRUE(cluster_.create_image(name_, IMAGE_SIZE, 22));
    ASSERT_TRUE(cluster_.open_image(name_, image_));
    before_.assign(IMAGE_SIZE, '\0');
    put(0, 64 * 1024, 'a');
    put(5 * MiB + 100, 3000, 'b');
    put(12 * MiB, MiB, 'c');
    ASSERT_TRUE(image_.flush());
    ASSERT_TRUE(au_test::run_ceph_cli("rbd snap create --no-progress " + rbd_path() + "@s1", nullptr));
    before_ = after_;

    put(5 * MiB, 8192, 'd');        // overwrite inside the first object of 5 MiB
    put(9 * MiB + 4095, 2, 'e');    // two bytes straddling a 4 KiB boundary
    ASSERT_EQ(512 * 1024, ceph::rbd_discard(*image_.context().img_ctx_, 12 * MiB, 512 * 1024));
    std::memset(&after_[12 * MiB], 0, 512 * 1024);
    ASSERT_TRUE(image_.flush());
    ASSERT_TRUE(au_test::run_ceph_cli("rbd snap create --no-progress " + rbd_path() + "@s2", nullptr));
    ASSERT_TRUE(cluster_.open_snapshot(name_, "s2", s2_));
  }

  void TearDown() override {
    s2_.close_snapshot();
    image_.close_image();
    if (!name_.empty()) cluster_.remove_image_with_snapshots(name_);
  }

  void put(uint64_t ofs, uint64_t len, char c) {
    if (after_.size() < IMAGE_SIZE) after_.assign(IMAGE_SIZE, '\0');
    const std::string data(len, c);
    ASSERT_EQ(static_cast<int>(len), image_.write(ofs, len, data.data(), 0));
    std::memcpy(&after_[ofs], data.data(), len);
  }

  std::string rbd_path() const { return std::string(au_test::SANDBOX_RBD_POOL) + "/" + name_; }

  Test_Cluster cluster_;
  std::string name_;
  Ceph_Image image_;
  Ceph_Snapshot s2_;
  std::string before_, after_;
};

TEST_F(Changed_Blocks_On_Cluster, changed_extents_match_rbd_diff_at_every_chunk_size) {
  const std::string args = "--from-snap s1 " + rbd_path() + "@s2";
  for (int power : {12, 16, 20, 22, 30}) {
    const uint64_t chunk = uint64_t(1) << power;
    Blocks blocks;
    ASSERT_TRUE(s2_.get_changed_blocks("s1", blocks, power, Range(0, 0), false, {}, false, false));
    EXPECT_EQ(rbd_diff(args, chunk, false), blocks) << "power " << power << ": " << dump(blocks);
    EXPECT_FALSE(blocks.empty());

    Blocks data_only;
    ASSERT_TRUE(s2_.get_changed_blocks("s1", data_only, power, Range(0, 0), true, {}, false,
                                       false));
    EXPECT_EQ(rbd_diff(args, chunk, true), data_only) << "power " << power;
  }
  // What a backup copies covers every byte written or discarded since s1, on the grid.
  Blocks fine;
  ASSERT_TRUE(s2_.get_changed_blocks("s1", fine, 12, Range(0, 0), false, {}, false, false));
  for (const Block& b : fine) EXPECT_EQ(0u, (b.offset | b.length) % 4096) << dump(fine);
  for (const Block& w : {Block(5 * MiB, 8192), Block(9 * MiB + 4095, 2), Block(12 * MiB, MiB / 2)})
    EXPECT_TRUE(covers(fine, w)) << w.offset << ": " << dump(fine);

  // Whole objects, through rbd_diff_iterate2.
  Blocks whole;
  ASSERT_TRUE(s2_.get_changed_blocks("s1", whole, 12, Range(0, 0), false, {}, false, true));
  EXPECT_EQ(rbd_diff("--whole-object " + args, 4096, false), whole) << dump(whole);

  // A sub-range gives only its extents, and the caller's entries join the merge.
  Blocks expected = within(rbd_diff(args, 4096, false), 8 * MiB, 12 * MiB);
  ASSERT_FALSE(expected.empty());
  expected.insert(expected.begin(), Block(0, 4096));
  Blocks part{{0, 4096}};
  ASSERT_TRUE(s2_.get_changed_blocks("s1", part, 12, Range(8 * MiB, 4 * MiB), false, {}, false,
                                     false));
  EXPECT_EQ(expected, part) << dump(part);
}

TEST_F(Changed_Blocks_On_Cluster, allocated_extents_and_bytes_of_each_snapshot) {
  Ceph_Snapshot s1;
  ASSERT_TRUE(cluster_.open_snapshot(name_, "s1", s1));
  Blocks allocated;
  ASSERT_TRUE(s1.get_allocated_blocks(allocated, 16, Range(0, 0), true, {}));
  EXPECT_EQ(rbd_diff(rbd_path() + "@s1", 1 << 16, true), allocated) << dump(allocated);
  for (const Block& w : {Block(0, 65536), Block(5 * MiB + 100, 3000), Block(12 * MiB, MiB)})
    EXPECT_TRUE(covers(allocated, w)) << w.offset << ": " << dump(allocated);

  // The bytes of every changed extent read back as written, per snapshot.
  Blocks changed;
  ASSERT_TRUE(s2_.get_changed_blocks("s1", changed, 12, Range(0, 0), false, {}, false, false));
  for (const Block& b : changed) {
    std::string got(b.length, '?');
    ASSERT_EQ(static_cast<int>(b.length), s2_.read(b.offset, b.length, &got[0], 0));
    EXPECT_EQ(0, after_.compare(b.offset, b.length, got)) << "at " << b.offset;
    ASSERT_EQ(static_cast<int>(b.length),
              s1.read(b.offset, b.length, &got[0], LIBRADOS_OP_FLAG_FADVISE_SEQUENTIAL));
    EXPECT_EQ(0, before_.compare(b.offset, b.length, got)) << "at " << b.offset;
  }

  ceph::Snapshot_Stat st;
  ASSERT_TRUE(s1.stat(st));
  EXPECT_EQ(IMAGE_SIZE, st.size);
  EXPECT_EQ(22, st.order);
  EXPECT_EQ(4 * MiB, st.obj_size);
  EXPECT_EQ(st.block_name_prefix, s1.get_block_name_prefix());
  EXPECT_EQ(0u, st.block_name_prefix.find("rbd_data.")) << st.block_name_prefix;
  // A snapshot is read-only.
  EXPECT_GT(0, s1.write(0, 4, "data", 0));
}

TEST_F(Changed_Blocks_On_Cluster, refusals_cancel_and_failures_report_false) {
  au_test::Log_Capture logs;
  Blocks blocks;
  int calls = 0;
  const ceph::Cancel_Callback cancel_at_once = [&] { return ++calls > 0; };
  EXPECT_FALSE(s2_.get_changed_blocks("s1", blocks, 12, Range(0, 0), false, cancel_at_once,
                                      false, false));
  EXPECT_LE(1, calls);  // librbd may finish the object it was on
  EXPECT_TRUE(blocks.empty());
  EXPECT_TRUE(logs.has(LM_ERROR, "Bitmap iterate callback cancelled.\n")) << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "Failed to diff iterate over the desired extends "
                                          "0-16777216 from snap(s1): code "))
      << logs.dump();

  // Stopping after the second extent keeps what came before, unsorted and unmerged.
  calls = 0;
  const ceph::Cancel_Callback cancel_later = [&] { return ++calls > 2; };
  EXPECT_FALSE(s2_.get_changed_blocks("s1", blocks, 12, Range(0, 0), false, cancel_later,
                                      false, false));
  EXPECT_EQ(2u, blocks.size()) << dump(blocks);

  logs.clear();
  blocks.clear();
  EXPECT_FALSE(s2_.get_changed_blocks("nosuch", blocks, 12, Range(0, 0), false, {}, false,
                                      false));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to diff iterate over the desired extends 0-16777216 "
                                 "from snap(nosuch): code 2, msg No such file or directory.\n"))
      << logs.dump();

  // The offset is held against the length, not the end: a later window of 4 MiB is refused.
  EXPECT_FALSE(s2_.diff_iterate("s1", [](uint64_t, uint64_t, int) { return 1; }, 8 * MiB,
                                4 * MiB));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to iterate over snapshots 's1' - 's2': the offset "
                                 "8388608 beyonds snapshot's size 4194304.\n"))
      << logs.dump();
}

}  // namespace
