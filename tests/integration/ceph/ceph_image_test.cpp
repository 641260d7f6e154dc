// Image handle on the sandbox cluster: snapshots and purge, resize and rollback with
// progress, metadata and layout, the head's changed extents, and the shared handles'
// lifetime, checked against the rbd tool.
#include <gtest/gtest.h>
#include <rbd/librbd.h>

#include <map>
#include <string>
#include <vector>

#include "tests/integration/ceph/pool_fixture.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

using namespace ceph_test;

class Ceph_Image_On_Cluster : public Pool_Fixture {
 protected:
  void SetUp() override {
    Pool_Fixture::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    name_ = au_test::unique_ceph_name("img");
    ASSERT_TRUE(make_image(name_, 8));
    ASSERT_TRUE(pool_.open_image(name_, image_, false)) << logs_.dump();
  }
  std::string path() const { return POOL + "/" + name_; }

  std::string name_;
  ceph::Ceph_Image image_;
};

TEST_F(Ceph_Image_On_Cluster, snapshots_are_created_listed_and_purged_protected_ones_by_force) {
  std::vector<ceph::Snapshot_Info> snaps;
  EXPECT_TRUE(image_.purge_snapshots(false));  // nothing to do
  ceph::Ceph_Snapshot a;
  ASSERT_TRUE(image_.new_snapshot("a", a)) << logs_.dump();
  EXPECT_EQ(8 * MiB, a.size());
  ASSERT_TRUE(rbd("snap create --no-progress " + path() + "@b"));
  ASSERT_TRUE(rbd("snap protect " + path() + "@b"));
  EXPECT_FALSE(image_.new_snapshot("a", a));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to create snapshot a for image " + name_ +
                                      ": err 17, msg File exists.\n"))
      << logs_.dump();

  ASSERT_TRUE(image_.list_snapshot(snaps));
  ASSERT_EQ(2u, snaps.size());
  EXPECT_TRUE(snaps[0].name == "a" && snaps[1].name == "b");
  bool exists = false;
  EXPECT_TRUE(image_.is_snapshot_exist("b", exists) && exists);
  EXPECT_TRUE(image_.is_snapshot_exist("zz", exists));
  EXPECT_FALSE(exists);
  EXPECT_TRUE(image_.snap_is_protected("b"));
  EXPECT_FALSE(image_.snap_is_protected("a"));
  EXPECT_EQ(0, image_.get_snap_namespace_type(snaps[0].id));

  // Not forced: refused before anything is removed.
  EXPECT_FALSE(image_.purge_snapshots(false));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to purge snapshots of image '" + name_ +
                                      "': snapshot b is protected.\n"))
      << logs_.dump();
  ASSERT_TRUE(image_.list_snapshot(snaps));
  EXPECT_EQ(2u, snaps.size());
  EXPECT_TRUE(image_.purge_snapshots(true)) << logs_.dump();
  ASSERT_TRUE(image_.list_snapshot(snaps));
  EXPECT_TRUE(snaps.empty());
}

TEST_F(Ceph_Image_On_Cluster, resize_and_rollback_report_progress_and_keep_data) {
  std::vector<std::pair<uint64_t, uint64_t>> reports;
  const ceph::Progress_Callback record = [&](uint64_t done, uint64_t total) {
    reports.emplace_back(done, total);
    return 0;
  };
  const std::string x(4096, 'x'), y(4096, 'y');
  ASSERT_EQ(4096, image_.write(4 * MiB, 4096, x.data(), 0));
  ASSERT_TRUE(rbd("snap create --no-progress " + path() + "@r1"));
  ASSERT_EQ(4096, image_.write(4 * MiB, 4096, y.data(), LIBRADOS_OP_FLAG_FADVISE_DONTNEED));

  ASSERT_TRUE(image_.rollback("r1", record)) << logs_.dump();
  EXPECT_FALSE(reports.empty());
  std::string got(4096, '?');
  ASSERT_EQ(4096, image_.read(4 * MiB, 4096, &got[0], 0));
  EXPECT_EQ(x, got);

  ASSERT_TRUE(image_.resize(16 * MiB, false, {}));
  EXPECT_FALSE(image_.resize(4 * MiB, false, {}));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to resize image '" + name_ +
                                      "' to 4194304: err 22, msg Invalid argument.\n"))
      << logs_.dump();
  EXPECT_EQ(16 * MiB, image_.size());
  reports.clear();
  ASSERT_TRUE(image_.resize(2 * MiB, true, record));
  EXPECT_EQ(2 * MiB, image_.size());
  for (const auto& r : reports) EXPECT_LE(r.first, r.second);
  EXPECT_EQ(0, image_.write_zeroes(4096, 0));  // the one range the zeroing guard lets through
}

TEST_F(Ceph_Image_On_Cluster, metadata_layout_and_changed_blocks_of_the_head) {
  std::map<std::string, std::string> meta{{"stale", "1"}};
  ASSERT_TRUE(image_.set_metadata("k1", "v1"));
  ASSERT_TRUE(image_.set_metadata("empty", ""));
  std::string value;
  EXPECT_TRUE(image_.get_metadata("k1", value));
  EXPECT_EQ("v1", value);
  ASSERT_TRUE(image_.list_metadatas(meta));
  EXPECT_EQ((std::map<std::string, std::string>{{"empty", ""}, {"k1", "v1"}}), meta);
  ASSERT_TRUE(au_test::run_ceph_cli("rbd image-meta get " + path() + " k1", &value));
  EXPECT_EQ("v1\n", value);
  EXPECT_TRUE(image_.remove_metadata("k1"));
  EXPECT_FALSE(image_.get_metadata("k1", value));
  EXPECT_FALSE(image_.remove_metadata("k1"));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to remove metadata of image '" + name_ +
                                      "': code 2, msg No such file or directory.\n"))
      << logs_.dump();

  uint64_t unit = 0, count = 0;
  EXPECT_TRUE(image_.get_stripe_info(unit, count));
  EXPECT_TRUE(unit == 4 * MiB && count == 1) << unit << " " << count;
  EXPECT_EQ(-1, image_.update_features(RBD_FEATURE_LAYERING, false));  // cannot be turned off
  EXPECT_TRUE(logs_.has_fragment(LM_ERROR, "Failed to set image features: code ")) << logs_.dump();

  ASSERT_TRUE(rbd("snap create --no-progress " + path() + "@c1"));
  const std::string data(5000, 'z');
  ASSERT_EQ(5000, image_.write(3 * MiB + 512, 5000, data.data(), 0));
  Blocks blocks;
  ASSERT_TRUE(image_.get_changed_blocks("c1", blocks, 12, Range(0, 0), true, {}));
  EXPECT_EQ(rbd_diff("--from-snap c1 " + path(), 4096, true), blocks) << dump(blocks);
  EXPECT_TRUE(covers(blocks, Block(3 * MiB + 512, 5000))) << dump(blocks);
}

// A copy of the context alone keeps the image open; the last copy really closes it.
TEST_F(Ceph_Image_On_Cluster, a_copied_context_keeps_the_image_open_until_the_last_copy_goes) {
  const auto watched = [this] {
    std::string status;
    EXPECT_TRUE(au_test::run_ceph_cli("rbd status " + path(), &status));
    return status.find("Watchers: none") == std::string::npos;
  };
  ceph::Ceph_Context copy = image_.context();
  image_.close_image();
  uint64_t size = 0;
  ASSERT_EQ(0, ceph::rbd_get_size(*copy.img_ctx_, &size));
  EXPECT_EQ(8 * MiB, size);
  EXPECT_TRUE(watched());
  copy = ceph::Ceph_Context();
  EXPECT_FALSE(watched());
}

}  // namespace
