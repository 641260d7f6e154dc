// Ceph_Group on the sandbox cluster: members, group snapshots (which purging an image
// leaves alone), renaming, removal, and the refusals of an unopened group.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/integration/ceph/client_test_cluster.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_group.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace {

const std::string POOL = au_test::SANDBOX_RBD_POOL;

std::vector<std::string> member_names(ceph::Ceph_Group& group) {
  std::vector<ceph::Image_Spec> images;
  EXPECT_TRUE(group.list_image(images));
  std::vector<std::string> names;
  for (const auto& spec : images) names.push_back(spec.name);
  std::sort(names.begin(), names.end());
  return names;
}

std::set<std::string> groups_of(ceph::Ceph_Pool& pool) {
  std::set<std::string> groups;
  EXPECT_TRUE(pool.list_group(groups));
  return groups;
}

class Ceph_Group_On_Cluster : public ::testing::Test {
 protected:
  void SetUp() override {
    AU_REQUIRE_CEPH_OR_SKIP();
    client_ = client_test::connect_sandbox();
    ASSERT_TRUE(client_);
    ASSERT_TRUE(client_->open_pool(POOL, pool_));
  }
  void new_image(const std::string& name) {
    ceph::Ceph_Image image;
    ASSERT_TRUE(pool_.new_image(name, 4 << 20, image, 1, 22, 0, 0, false));
  }
  std::unique_ptr<ceph::Ceph_Client> client_;
  ceph::Ceph_Pool pool_;
};

TEST_F(Ceph_Group_On_Cluster, holds_images_takes_snapshots_and_renames) {
  au_test::Log_Capture logs;
  const std::string a = au_test::unique_ceph_name("gimg");
  const std::string b = au_test::unique_ceph_name("gimg");
  const std::string name = au_test::unique_ceph_name("grp");
  const std::string renamed = name + "-renamed";
  client_test::Image_Cleanup clean_a{POOL + "/" + a}, clean_b{POOL + "/" + b};
  client_test::Group_Cleanup clean_group{POOL + "/" + name},
      clean_renamed{POOL + "/" + renamed};
  new_image(a);
  new_image(b);

  ceph::Ceph_Group group;
  // The URI's pool part is ignored: members always come from the group's pool.
  ASSERT_TRUE(pool_.new_group(name, {a, "ceph://elsewhere/" + b}, group)) << logs.dump();
  EXPECT_EQ(name, group.group_name());
  EXPECT_EQ((std::vector<std::string>{std::min(a, b), std::max(a, b)}), member_names(group));
  EXPECT_EQ(1u, groups_of(pool_).count(name));

  // A member cannot be removed from the pool; the message says which group holds it.
  logs.clear();
  EXPECT_FALSE(pool_.remove_image(a, true));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove image '" + a + "': image is in group " + POOL +
                                     "/" + name + ".\n")) << logs.dump();

  std::vector<ceph::Group_Snapshot_Info> snaps;
  EXPECT_TRUE(group.list_snapshot(snaps));
  EXPECT_TRUE(snaps.empty());
  ASSERT_TRUE(group.create_snapshot("gs1")) << logs.dump();
  ASSERT_TRUE(group.list_snapshot(snaps));
  ASSERT_EQ(1u, snaps.size());
  EXPECT_EQ("gs1", snaps[0].name);
  EXPECT_EQ(1, snaps[0].state);  // complete
  logs.clear();
  EXPECT_FALSE(group.create_snapshot("gs1"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to create group snapshot gs1: code 17, err File exists\n"))
      << logs.dump();

  // Purging a member's snapshots removes user ones, protected too, and leaves the
  // group's snapshot alone.
  {
    ceph::Ceph_Image image;
    ceph::Ceph_Snapshot user, guarded;
    ASSERT_TRUE(pool_.open_image(a, image, false));
    ASSERT_TRUE(image.new_snapshot("u1", user));
    ASSERT_TRUE(image.new_snapshot("u2", guarded));
    ASSERT_TRUE(au_test::run_ceph_cli("rbd snap protect " + POOL + "/" + a + "@u2", nullptr));
    EXPECT_FALSE(image.purge_snapshots(false));
    EXPECT_TRUE(image.purge_snapshots(true)) << logs.dump();
    std::vector<ceph::Snapshot_Info> left;
    ASSERT_TRUE(image.list_snapshot(left));
    ASSERT_EQ(1u, left.size());
    EXPECT_EQ(1, image.get_snap_namespace_type(left[0].id));  // the group's
  }
  // So a member with a group snapshot stays even when purging is asked for.
  logs.clear();
  EXPECT_FALSE(pool_.remove_image(a, true));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove image '" + a +
                                     "': code 39, msg Directory not empty.\n")) << logs.dump();

  ASSERT_TRUE(group.rename(renamed)) << logs.dump();
  EXPECT_EQ(renamed, group.group_name());
  const auto groups = groups_of(pool_);
  EXPECT_EQ(0u, groups.count(name));
  EXPECT_EQ(1u, groups.count(renamed));
  ceph::Ceph_Group reopened;
  ASSERT_TRUE(pool_.open_group(renamed, reopened));
  EXPECT_EQ(2u, member_names(reopened).size());

  ASSERT_TRUE(reopened.remove_image(a)) << logs.dump();
  EXPECT_EQ(std::vector<std::string>{b}, member_names(group));
  logs.clear();
  EXPECT_FALSE(group.add_image(a + "-none"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open image '" + a +
                                     "-none': code 2, msg No such file or directory.\n"));

  ASSERT_TRUE(pool_.remove_group(renamed)) << logs.dump();
  EXPECT_EQ(0u, groups_of(pool_).count(renamed));
  logs.clear();
  EXPECT_FALSE(pool_.remove_group(renamed));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove group '" + renamed +
                                     "': group doesn't exist.\n")) << logs.dump();
  EXPECT_FALSE(pool_.open_group(renamed, reopened));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open group '" + renamed +
                                     "': group doesn't exist.\n")) << logs.dump();
  // With the group gone, the former member is an ordinary image again.
  EXPECT_TRUE(pool_.remove_image(a, true)) << logs.dump();
}

TEST_F(Ceph_Group_On_Cluster, a_temporary_group_removes_itself) {
  const std::string name = au_test::unique_ceph_name("gtmp");
  client_test::Group_Cleanup cleanup{POOL + "/" + name};
  {
    ceph::Ceph_Group group(true);
    ASSERT_TRUE(pool_.new_group(name, group));
    EXPECT_EQ(1u, groups_of(pool_).count(name));
  }
  EXPECT_EQ(0u, groups_of(pool_).count(name));
  {
    ceph::Ceph_Group kept(false);
    ASSERT_TRUE(pool_.new_group(name, kept));
  }
  EXPECT_EQ(1u, groups_of(pool_).count(name));
}

TEST_F(Ceph_Group_On_Cluster, refuses_empty_names_and_unopened_handles) {
  au_test::Log_Capture logs;
  ceph::Ceph_Group group;
  std::vector<ceph::Group_Snapshot_Info> snaps;
  std::vector<ceph::Image_Spec> images;
  EXPECT_FALSE(group.create_snapshot("s"));
  EXPECT_FALSE(group.list_snapshot(snaps));
  EXPECT_FALSE(group.list_image(images));
  EXPECT_FALSE(group.rename("n"));
  EXPECT_FALSE(group.add_image("i"));
  size_t checks = 0;
  for (const auto& r : logs.records())
    checks += r.priority == LM_EMERGENCY &&
              r.text.find(", ctx_.io_ctx_ is NULL:\n") != std::string::npos;
  EXPECT_EQ(5u, checks) << logs.dump();

  const std::string name = au_test::unique_ceph_name("gchk");
  ceph::Ceph_Group opened(true);
  ASSERT_TRUE(pool_.new_group(name, opened));
  logs.clear();
  EXPECT_FALSE(opened.create_snapshot(""));
  EXPECT_TRUE(logs.has_check("snap_name is empty"));
  EXPECT_FALSE(opened.add_image(""));
  EXPECT_FALSE(opened.remove_image(""));
  EXPECT_TRUE(logs.has_check("image_name is empty"));
  EXPECT_FALSE(opened.rename(""));
  EXPECT_TRUE(logs.has_check("new_name is empty"));
  ceph::Ceph_Image closed;
  EXPECT_FALSE(opened.add_image(closed));
  EXPECT_FALSE(opened.remove_image(closed));
  EXPECT_TRUE(logs.has_check("img.ctx_.io_ctx_ is NULL"));
  EXPECT_FALSE(pool_.new_group("", opened));
  EXPECT_TRUE(logs.has_check("group_name is empty"));
}

}  // namespace
