// Changed-extent extraction and data access on the sandbox cluster, the way a backup
// agent uses them: write known data, snapshot, change some of it, snapshot again, and
// compare what the library reports with the rbd tool and with the bytes written.
#include <gtest/gtest.h>
#include <rbd/librbd.h>

#include <cstring>
#include <string>

#include "tests/integration/ceph/pool_fixture.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

using namespace ceph_test;

constexpr uint64_t IMAGE_SIZE = 16 * MiB;

// Snapshot s1 holds `before_`; s2 (opened) and the head hold `after_`.
class Changed_Blocks_On_Cluster : public Pool_Fixture {
 protected:
  void SetUp() override {
    Pool_Fixture::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    name_ = au_test::unique_ceph_name("snap");
    ASSERT_TRUE(make_image(name_, IMAGE_SIZE / MiB));
    ASSERT_TRUE(pool_.open_image(name_, image_, false));
    after_.assign(IMAGE_SIZE, '\0');
    put(0, 64 * 1024, 'a');
    put(5 * MiB + 100, 3000, 'b');
    put(12 * MiB, MiB, 'c');
    ASSERT_TRUE(image_.flush());
    ASSERT_TRUE(rbd("snap create --no-progress " + path() + "@s1"));
    before_ = after_;

    put(5 * MiB, 8192, 'd');      // overwrite inside the first object of 5 MiB
    put(9 * MiB + 4095, 2, 'e');  // two bytes straddling a 4 KiB boundary
    ASSERT_EQ(512 * 1024, ceph::rbd_discard(*image_.context().img_ctx_, 12 * MiB, 512 * 1024));
    std::memset(&after_[12 * MiB], 0, 512 * 1024);
    ASSERT_TRUE(image_.flush());
    ASSERT_TRUE(rbd("snap create --no-progress " + path() + "@s2"));
    ASSERT_TRUE(pool_.open_snapshot(name_, "s2", s2_, true)) << logs_.dump();
  }

  void put(uint64_t ofs, uint64_t len, char c) {
    const std::string data(len, c);
    ASSERT_EQ(static_cast<int>(len), image_.write(ofs, len, data.data(), 0));
    std::memcpy(&after_[ofs], data.data(), len);
  }
  std::string path() const { return POOL + "/" + name_; }
  bool changed(Blocks& blocks, int power, Range range, bool skip_holes, bool whole_object) {
    return s2_.get_changed_blocks("s1", blocks, power, range, skip_holes, {}, false, whole_object);
  }

  std::string name_;
  ceph::Ceph_Image image_;
  ceph::Ceph_Snapshot s2_;
  std::string before_, after_;
};

TEST_F(Changed_Blocks_On_Cluster, changed_extents_match_rbd_diff_at_every_chunk_size) {
  const std::string args = "--from-snap s1 " + path() + "@s2";
  for (int power : {12, 16, 20, 22, 30}) {
    const uint64_t chunk = uint64_t(1) << power;
    Blocks blocks, data_only;
    ASSERT_TRUE(changed(blocks, power, Range(0, 0), false, false));
    EXPECT_EQ(rbd_diff(args, chunk, false), blocks) << "power " << power << ": " << dump(blocks);
    EXPECT_FALSE(blocks.empty());
    ASSERT_TRUE(changed(data_only, power, Range(0, 0), true, false));
    EXPECT_EQ(rbd_diff(args, chunk, true), data_only) << "power " << power;
  }
  // What a backup copies covers every byte written or discarded since s1, on the grid.
  Blocks fine, whole;
  ASSERT_TRUE(changed(fine, 12, Range(0, 0), false, false));
  for (const Block& b : fine) EXPECT_EQ(0u, (b.offset | b.length) % 4096) << dump(fine);
  for (const Block& w : {Block(5 * MiB, 8192), Block(9 * MiB + 4095, 2), Block(12 * MiB, MiB / 2)})
    EXPECT_TRUE(covers(fine, w)) << w.offset << ": " << dump(fine);

  // Whole objects, through rbd_diff_iterate2.
  ASSERT_TRUE(changed(whole, 12, Range(0, 0), false, true));
  EXPECT_EQ(rbd_diff("--whole-object " + args, 4096, false), whole) << dump(whole);

  // A sub-range gives only its extents, and the caller's entries join the merge.
  Blocks expected{{0, 4096}}, part{{0, 4096}};
  for (const Block& b : fine)
    if (b.offset >= 8 * MiB && b.end() <= 12 * MiB) expected.push_back(b);
  ASSERT_LT(1u, expected.size());
  ASSERT_TRUE(changed(part, 12, Range(8 * MiB, 4 * MiB), false, false));
  EXPECT_EQ(expected, part) << dump(part);
}

TEST_F(Changed_Blocks_On_Cluster, allocated_extents_and_bytes_of_each_snapshot) {
  ceph::Ceph_Snapshot s1;
  ASSERT_TRUE(pool_.open_snapshot(name_, "s1", s1, true));
  Blocks allocated, changes;
  ASSERT_TRUE(s1.get_allocated_blocks(allocated, 16, Range(0, 0), true, {}));
  EXPECT_EQ(rbd_diff(path() + "@s1", 1 << 16, true), allocated) << dump(allocated);
  for (const Block& w : {Block(0, 65536), Block(5 * MiB + 100, 3000), Block(12 * MiB, MiB)})
    EXPECT_TRUE(covers(allocated, w)) << w.offset << ": " << dump(allocated);

  // The bytes of every changed extent read back as written, per snapshot.
  ASSERT_TRUE(changed(changes, 12, Range(0, 0), false, false));
  for (const Block& b : changes) {
    std::string got(b.length, '?');
    ASSERT_EQ(static_cast<int>(b.length), s2_.read(b.offset, b.length, &got[0], 0));
    EXPECT_EQ(0, after_.compare(b.offset, b.length, got)) << "at " << b.offset;
    ASSERT_EQ(static_cast<int>(b.length),
              s1.read(b.offset, b.length, &got[0], LIBRADOS_OP_FLAG_FADVISE_SEQUENTIAL));
    EXPECT_EQ(0, before_.compare(b.offset, b.length, got)) << "at " << b.offset;
  }

  ceph::Snapshot_Stat st;
  ASSERT_TRUE(s1.stat(st));
  EXPECT_TRUE(st.size == IMAGE_SIZE && st.order == 22 && st.obj_size == 4 * MiB);
  EXPECT_EQ(st.block_name_prefix, s1.get_block_name_prefix());
  EXPECT_EQ(0u, st.block_name_prefix.find("rbd_data.")) << st.block_name_prefix;
  EXPECT_GT(0, s1.write(0, 4, "data", 0));  // a snapshot is read-only
}

TEST_F(Changed_Blocks_On_Cluster, refusals_cancel_and_failures_report_false) {
  Blocks blocks;
  int calls = 0;
  const ceph::Cancel_Callback cancel_at_once = [&] { return ++calls > 0; };
  EXPECT_FALSE(s2_.get_changed_blocks("s1", blocks, 12, Range(0, 0), false, cancel_at_once,
                                      false, false));
  EXPECT_LE(1, calls);  // librbd may finish the object it was on
  EXPECT_TRUE(blocks.empty());
  EXPECT_TRUE(logs_.has(LM_ERROR, "Bitmap iterate callback cancelled.\n")) << logs_.dump();
  EXPECT_TRUE(logs_.has_fragment(LM_ERROR, "Failed to diff iterate over the desired extends "
                                           "0-16777216 from snap(s1): code "))
      << logs_.dump();

  // Stopping after the second extent keeps what came before, unsorted and unmerged.
  calls = 0;
  const ceph::Cancel_Callback cancel_later = [&] { return ++calls > 2; };
  EXPECT_FALSE(s2_.get_changed_blocks("s1", blocks, 12, Range(0, 0), false, cancel_later,
                                      false, false));
  EXPECT_EQ(2u, blocks.size()) << dump(blocks);

  blocks.clear();
  EXPECT_FALSE(s2_.get_changed_blocks("nosuch", blocks, 12, Range(0, 0), false, {}, false, false));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to diff iterate over the desired extends 0-16777216 "
                                  "from snap(nosuch): code 2, msg No such file or directory.\n"))
      << logs_.dump();

  // The offset is held against the length, not the end: a later window of 4 MiB is refused.
  EXPECT_FALSE(s2_.diff_iterate("s1", [](uint64_t, uint64_t, int) { return 1; }, 8 * MiB,
                                4 * MiB));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to iterate over snapshots 's1' - 's2': the offset "
                                  "8388608 beyonds snapshot's size 4194304.\n"))
      << logs_.dump();
}

// The quiet cases an agent meets every night: an image that did not change between two
// snapshots, a snapshot of an image of size 0, and a pool that holds no image yet.
using Quiet_Cases_On_Cluster = Pool_Fixture;

TEST_F(Quiet_Cases_On_Cluster, idle_image_empty_snapshot_and_empty_pool) {
  const std::string idle = au_test::unique_ceph_name("idle");
  ASSERT_TRUE(make_image(idle, 8));
  ceph::Ceph_Image image;
  ASSERT_TRUE(pool_.open_image(idle, image, false));
  const std::string data(64 * 1024, 'x');
  ASSERT_EQ(static_cast<int>(data.size()), image.write(MiB, data.size(), data.data(), 0));
  ASSERT_TRUE(image.flush());
  ASSERT_TRUE(rbd("snap create --no-progress " + POOL + "/" + idle + "@s1"));
  ASSERT_TRUE(rbd("snap create --no-progress " + POOL + "/" + idle + "@s2"));
  ceph::Ceph_Snapshot s2;
  ASSERT_TRUE(pool_.open_snapshot(idle, "s2", s2, true));
  Blocks blocks;
  EXPECT_TRUE(s2.get_changed_blocks("s1", blocks, 12, Range(0, 0), false, {}, false, false));
  EXPECT_TRUE(blocks.empty()) << dump(blocks);
  EXPECT_TRUE(s2.get_allocated_blocks(blocks, 12, Range(0, 0), false, {}));
  EXPECT_TRUE(covers(blocks, Block(MiB, data.size()))) << dump(blocks);  // there, unchanged

  const std::string empty = au_test::unique_ceph_name("size0");
  ASSERT_TRUE(make_image(empty, 0));
  ASSERT_TRUE(rbd("snap create --no-progress " + POOL + "/" + empty + "@s0"));
  ceph::Ceph_Snapshot s0;
  ASSERT_TRUE(pool_.open_snapshot(empty, "s0", s0, true));
  blocks.clear();
  logs_.clear();
  EXPECT_FALSE(s0.get_allocated_blocks(blocks, 12, Range(0, 0), false, {}));
  EXPECT_TRUE(logs_.has_check("size(0) <= 0(0)")) << logs_.dump();

  const std::string pool_name = au_test::unique_ceph_name("emptypool");
  cleanup_.commands.push_back("ceph osd pool rm " + pool_name + " " + pool_name +
                              " --yes-i-really-really-mean-it");
  ASSERT_TRUE(au_test::run_ceph_cli("ceph osd pool create " + pool_name + " 8 >/dev/null 2>&1", nullptr));
  ASSERT_TRUE(rbd("pool init " + pool_name));
  ceph::Ceph_Pool empty_pool;
  ASSERT_TRUE(client_->open_pool(pool_name, empty_pool));
  std::vector<ceph::Image_Spec> images;
  EXPECT_TRUE(empty_pool.list_image(images)) << logs_.dump();
  EXPECT_TRUE(images.empty());
}

}  // namespace
