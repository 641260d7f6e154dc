// Image handle on the sandbox cluster: snapshot lifecycle and purge, resize and rollback
// with progress, metadata and layout, checked against the rbd tool. The head's whole
// allocation through diff_iterate is checked by the client test, over an image URI.
#include <gtest/gtest.h>
#include <rbd/librbd.h>

#include <map>
#include <string>
#include <vector>

#include "tests/integration/ceph/snapshot_test_cluster.h"
#include "tests/support/ceph_env.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace {

using ceph::Ceph_Image;
using ceph::Ceph_Snapshot;

constexpr uint64_t MiB = 1 << 20;

std::vector<std::string> names_of(const std::vector<ceph::Snapshot_Info>& snaps) {
  std::vector<std::string> names;
  for (const auto& s : snaps) names.push_back(s.name);
  return names;
}

class Ceph_Image_On_Cluster : public ::testing::Test {
 protected:
  void SetUp() override {
    AU_REQUIRE_CEPH_OR_SKIP();
    ASSERT_TRUE(cluster_.connect());
    name_ = au_test::unique_ceph_name("img");
    ASSERT_TRUE(cluster_.create_image(name_, 8 * MiB, 22));
    ASSERT_TRUE(cluster_.open_image(name_, image_));
  }
  void TearDown() override {
    image_.close_image();
    if (!name_.empty()) au_test::Test_Cluster::remove_image_with_snapshots(name_);
  }
  std::string rbd_path() const { return std::string(au_test::SANDBOX_RBD_POOL) + "/" + name_; }
  bool rbd(const std::string& args) { return au_test::run_ceph_cli("rbd " + args, nullptr); }

  au_test::Test_Cluster cluster_;
  std::string name_;
  Ceph_Image image_;
};

TEST_F(Ceph_Image_On_Cluster, snapshots_are_created_listed_and_purged_protected_ones_by_force) {
  au_test::Log_Capture logs;
  std::vector<ceph::Snapshot_Info> snaps;
  ASSERT_TRUE(image_.list_snapshot(snaps));
  EXPECT_TRUE(snaps.empty());
  EXPECT_TRUE(image_.purge_snapshots(false));  // nothing to do

  Ceph_Snapshot a;
  ASSERT_TRUE(image_.new_snapshot("a", a)) << logs.dump();
  EXPECT_TRUE(static_cast<bool>(a));
  EXPECT_EQ("a", a.snapshot_name());
  EXPECT_EQ(8 * MiB, a.size());
  ASSERT_TRUE(rbd("snap create --no-progress " + rbd_path() + "@b"));
  ASSERT_TRUE(rbd("snap protect " + rbd_path() + "@b"));
  EXPECT_FALSE(image_.new_snapshot("a", a));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to create snapshot a for image " + name_ +
                                     ": err 17, msg File exists.\n"))
      << logs.dump();

  ASSERT_TRUE(image_.list_snapshot(snaps));
  EXPECT_EQ((std::vector<std::string>{"a", "b"}), names_of(snaps));
  bool exists = false;
  EXPECT_TRUE(image_.is_snapshot_exist("b", exists));
  EXPECT_TRUE(exists);
  EXPECT_TRUE(image_.is_snapshot_exist("zz", exists));
  EXPECT_FALSE(exists);
  EXPECT_TRUE(image_.snap_is_protected("b"));
  EXPECT_FALSE(image_.snap_is_protected("a"));
  EXPECT_EQ(0, image_.get_snap_namespace_type(snaps[0].id));

  // A group snapshot lives in the group namespace and is never purged.
  const std::string group = au_test::unique_ceph_name("grp");
  const std::string gspec = std::string(au_test::SANDBOX_RBD_POOL) + "/" + group;
  ASSERT_TRUE(rbd("group create " + gspec));
  ASSERT_TRUE(rbd("group image add " + gspec + " " + rbd_path()));
  ASSERT_TRUE(rbd("group snap create " + gspec + "@gs"));
  ceph::Group_Info info;
  EXPECT_TRUE(image_.get_group(info));
  EXPECT_EQ(group, info.name);

  // Not forced: refused before anything is removed.
  logs.clear();
  EXPECT_FALSE(image_.purge_snapshots(false));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to purge snapshots of image '" + name_ +
                                     "': snapshot b is protected.\n"))
      << logs.dump();
  ASSERT_TRUE(image_.list_snapshot(snaps));
  ASSERT_EQ(3u, snaps.size());
  EXPECT_EQ(1, image_.get_snap_namespace_type(snaps[2].id));

  EXPECT_TRUE(image_.purge_snapshots(true)) << logs.dump();
  ASSERT_TRUE(image_.list_snapshot(snaps));
  ASSERT_EQ(1u, snaps.size());
  EXPECT_EQ(1, image_.get_snap_namespace_type(snaps[0].id));

  rbd("group snap rm " + gspec + "@gs");
  rbd("group image remove " + gspec + " " + rbd_path());
  rbd("group rm " + gspec);
}

TEST_F(Ceph_Image_On_Cluster, resize_and_rollback_report_progress_and_keep_data) {
  au_test::Log_Capture logs;
  std::vector<std::pair<uint64_t, uint64_t>> reports;
  const ceph::Progress_Callback record = [&](uint64_t done, uint64_t total) {
    reports.emplace_back(done, total);
    return 0;
  };
  const std::string x(4096, 'x'), y(4096, 'y');
  ASSERT_EQ(4096, image_.write(4 * MiB, 4096, x.data(), 0));
  ASSERT_TRUE(rbd("snap create --no-progress " + rbd_path() + "@r1"));
  ASSERT_EQ(4096, image_.write(4 * MiB, 4096, y.data(), LIBRADOS_OP_FLAG_FADVISE_DONTNEED));

  ASSERT_TRUE(image_.rollback("r1", record)) << logs.dump();
  EXPECT_FALSE(reports.empty());
  for (const auto& r : reports) EXPECT_LE(r.first, r.second);
  std::string got(4096, '?');
  ASSERT_EQ(4096, image_.read(4 * MiB, 4096, &got[0], 0));
  EXPECT_EQ(x, got);

  ASSERT_TRUE(image_.resize(16 * MiB, false, {}));
  EXPECT_EQ(16 * MiB, image_.size());
  EXPECT_FALSE(image_.resize(4 * MiB, false, {}));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to resize image '" + name_ +
                                     "' to 4194304: err 22, msg Invalid argument.\n"))
      << logs.dump();
  EXPECT_EQ(16 * MiB, image_.size());
  reports.clear();
  ASSERT_TRUE(image_.resize(2 * MiB, true, record));
  EXPECT_EQ(2 * MiB, image_.size());
  for (const auto& r : reports) EXPECT_LE(r.first, r.second);
  EXPECT_EQ(0, image_.write_zeroes(4096, 0));  // the one range the zeroing guard lets through
}

TEST_F(Ceph_Image_On_Cluster, metadata_layout_and_changed_blocks_of_the_head) {
  au_test::Log_Capture logs;
  std::map<std::string, std::string> meta{{"stale", "1"}};
  ASSERT_TRUE(image_.list_metadatas(meta));
  EXPECT_TRUE(meta.empty());
  ASSERT_TRUE(image_.set_metadata("k1", "v1"));
  ASSERT_TRUE(image_.set_metadata("empty", ""));
  std::string value;
  EXPECT_TRUE(image_.get_metadata("k1", value));
  EXPECT_EQ("v1", value);
  EXPECT_FALSE(image_.get_metadata("nosuch", value));
  ASSERT_TRUE(image_.list_metadatas(meta));
  EXPECT_EQ((std::map<std::string, std::string>{
                {"empty", ""}, {"k1", "v1"}}),
            meta);
  std::string cli;
  ASSERT_TRUE(au_test::run_ceph_cli("rbd image-meta get " + rbd_path() + " k1", &cli));
  EXPECT_EQ("v1\n", cli);
  EXPECT_TRUE(image_.remove_metadata("k1"));
  EXPECT_FALSE(image_.get_metadata("k1", value));
  EXPECT_FALSE(image_.remove_metadata("k1"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove metadata of image '" + name_ +
                                     "': code 2, msg No such file or directory.\n"))
      << logs.dump();

  uint64_t unit = 0, count = 0;
  EXPECT_TRUE(image_.get_stripe_info(unit, count));
  EXPECT_EQ(4 * MiB, unit);
  EXPECT_EQ(1u, count);
  EXPECT_EQ(-1, image_.update_features(RBD_FEATURE_LAYERING, false));  // cannot be turned off
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "Failed to set image features: code ")) << logs.dump();

  // Changed extents of the head against a snapshot.
  ASSERT_TRUE(rbd("snap create --no-progress " + rbd_path() + "@c1"));
  const std::string data(5000, 'z');
  ASSERT_EQ(5000, image_.write(3 * MiB + 512, 5000, data.data(), 0));
  Blocks blocks;
  ASSERT_TRUE(image_.get_changed_blocks("c1", blocks, 12, Range(0, 0), true, {}));
  EXPECT_EQ(au_test::rbd_diff("--from-snap c1 " + rbd_path(), 4096, true), blocks)
      << au_test::dump(blocks);
  EXPECT_TRUE(au_test::covers(blocks, Block(3 * MiB + 512, 5000))) << au_test::dump(blocks);
}

}  // namespace
