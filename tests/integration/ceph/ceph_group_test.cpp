// Ceph_Group on the sandbox cluster: members, group snapshots (which purging a member
// leaves alone), renaming, removal, a group that removes itself, and argument checks.
#include "utils/agent/ceph/ceph_group.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "tests/integration/ceph/pool_fixture.h"

namespace {

using namespace ceph_test;

std::vector<std::string> members(ceph::Ceph_Group& group) {
  std::vector<ceph::Image_Spec> images;
  EXPECT_TRUE(group.list_image(images));
  std::vector<std::string> names;
  for (const auto& rbd_path : images) names.push_back(rbd_path.name);
  std::sort(names.begin(), names.end());
  return names;
}

size_t listed(ceph::Ceph_Pool& pool, const std::string& group) {
  std::set<std::string> groups;
  EXPECT_TRUE(pool.list_group(groups));
  return groups.count(group);
}

using Ceph_Group_On_Cluster = Pool_Fixture;

TEST_F(Ceph_Group_On_Cluster, holds_images_takes_snapshots_and_renames) {
  const std::string a = au_test::unique_ceph_name("gimg"), b = au_test::unique_ceph_name("gimg");
  const std::string name = au_test::unique_ceph_name("grp"), renamed = name + "-renamed";
  for (const auto& image : {a, b}) ASSERT_TRUE(make_image(image, 4));
  cleanup_.group(name);
  cleanup_.group(renamed);

  ceph::Ceph_Group group;
  // The URI's pool part is ignored: members always come from the group's pool.
  ASSERT_TRUE(pool_.new_group(name, {a, "ceph://elsewhere/" + b}, group)) << logs_.dump();
  EXPECT_EQ((std::vector<std::string>{std::min(a, b), std::max(a, b)}), members(group));
  EXPECT_EQ(1u, listed(pool_, name));
  EXPECT_FALSE(pool_.remove_image(a, true));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to remove image '" + a + "': image is in group " + POOL +
                                      "/" + name + ".\n"))
      << logs_.dump();

  std::vector<ceph::Group_Snapshot_Info> snaps;
  EXPECT_TRUE(group.list_snapshot(snaps));
  EXPECT_TRUE(snaps.empty());
  ASSERT_TRUE(group.create_snapshot("gs1")) << logs_.dump();
  ASSERT_TRUE(group.list_snapshot(snaps));
  ASSERT_EQ(1u, snaps.size());
  EXPECT_EQ("gs1", snaps[0].name);
  EXPECT_EQ(1, snaps[0].state);  // complete
  EXPECT_FALSE(group.create_snapshot("gs1"));
  EXPECT_TRUE(
      logs_.has(LM_ERROR, "Failed to create group snapshot gs1: code 17, err File exists\n"));

  // Purging a member removes its user snapshots, protected too, not the group's.
  ceph::Ceph_Image image;
  ceph::Ceph_Snapshot user;
  ceph::Group_Info info;
  ASSERT_TRUE(pool_.open_image(a, image, false) && image.new_snapshot("u1", user));
  EXPECT_TRUE(image.get_group(info));
  EXPECT_EQ(name, info.name);
  ASSERT_TRUE(rbd("snap protect " + POOL + "/" + a + "@u1"));
  EXPECT_TRUE(image.purge_snapshots(true)) << logs_.dump();
  std::vector<ceph::Snapshot_Info> left;
  ASSERT_TRUE(image.list_snapshot(left));
  ASSERT_EQ(1u, left.size());
  EXPECT_EQ(1, image.get_snap_namespace_type(left[0].id));  // the group namespace
  image.close_image();
  EXPECT_FALSE(pool_.remove_image(a, true));  // so the image still has a snapshot
  EXPECT_TRUE(logs_.has(LM_ERROR,
                        "Failed to remove image '" + a + "': code 39, msg Directory not empty.\n"))
      << logs_.dump();

  ASSERT_TRUE(group.rename(renamed)) << logs_.dump();
  EXPECT_EQ(renamed, group.group_name());
  EXPECT_EQ(0u, listed(pool_, name));
  ceph::Ceph_Group reopened;
  ASSERT_TRUE(pool_.open_group(renamed, reopened));
  ASSERT_TRUE(reopened.remove_image(a)) << logs_.dump();
  EXPECT_EQ(std::vector<std::string>{b}, members(group));

  ASSERT_TRUE(pool_.remove_group(renamed)) << logs_.dump();
  EXPECT_FALSE(pool_.remove_group(renamed));
  EXPECT_TRUE(
      logs_.has(LM_ERROR, "Failed to remove group '" + renamed + "': group doesn't exist.\n"));
  EXPECT_FALSE(pool_.open_group(renamed, reopened));
  EXPECT_TRUE(
      logs_.has(LM_ERROR, "Failed to open group '" + renamed + "': group doesn't exist.\n"));
}

TEST_F(Ceph_Group_On_Cluster, a_temporary_group_removes_itself_and_checks_arguments) {
  const std::string name = au_test::unique_ceph_name("gtmp");
  cleanup_.group(name);
  {
    ceph::Ceph_Group temporary(true);
    ASSERT_TRUE(pool_.new_group(name, temporary));
    EXPECT_EQ(1u, listed(pool_, name));
    ceph::Ceph_Image closed;
    EXPECT_FALSE(temporary.create_snapshot(""));
    EXPECT_FALSE(temporary.rename(""));
    EXPECT_FALSE(temporary.add_image(closed));
    EXPECT_TRUE(logs_.has_check("snap_name is empty"));
    EXPECT_TRUE(logs_.has_check("new_name is empty"));
    EXPECT_TRUE(logs_.has_check("img.ctx_.io_ctx_ is NULL"));
  }
  EXPECT_EQ(0u, listed(pool_, name));
  ceph::Ceph_Group unopened;
  EXPECT_FALSE(unopened.add_image("img"));
  EXPECT_TRUE(logs_.has_check("ctx_.io_ctx_ is NULL"));
}

}  // namespace
