// Ceph_Pool on the sandbox cluster: images created, listed, opened and removed (busy, with
// snapshots, protected ones too) and pool metadata.
#include "utils/agent/ceph/ceph_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tests/integration/ceph/pool_fixture.h"

namespace {

using namespace ceph_test;

bool exists_on_cluster(const std::string& name) { return rbd("info " + POOL + "/" + name + " >/dev/null 2>&1"); }

using Ceph_Pool_On_Cluster = Pool_Fixture;

TEST_F(Ceph_Pool_On_Cluster, creates_lists_opens_and_removes_images) {
  const std::string name = au_test::unique_ceph_name("pimg");
  cleanup_.image(name);
  ceph::Ceph_Image image, other;
  ASSERT_TRUE(pool_.new_image(name, 4 << 20, image, 1, 22, 0, 0, false)) << logs_.dump();
  EXPECT_EQ(4u << 20, image.size());
  std::vector<ceph::Image_Spec> images;
  ASSERT_TRUE(pool_.list_image(images));
  const auto listed = std::find_if(images.begin(), images.end(),
                                   [&](const ceph::Image_Spec& s) { return s.name == name; });
  ASSERT_NE(images.end(), listed);
  EXPECT_FALSE(listed->id.empty());
  EXPECT_FALSE(pool_.new_image(name, 4 << 20, other, 1, 22, 0, 0, false));
  EXPECT_TRUE(
      logs_.has(LM_ERROR, "Failed to create image '" + name + "': code -17, msg File exists.\n"))
      << logs_.dump();

  // A writable handle watches the image: removal is refused at once, not retried.
  EXPECT_FALSE(pool_.remove_image(name, true));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to remove image '" + name + "': image is busy.\n"));
  image.close_image();
  ASSERT_TRUE(pool_.open_image(name, other, true));  // read-only handles do not watch
  EXPECT_TRUE(pool_.remove_image(name, false)) << logs_.dump();
  EXPECT_FALSE(exists_on_cluster(name));
  EXPECT_FALSE(pool_.remove_image(name, false));
  EXPECT_TRUE(logs_.has(
      LM_ERROR, "Failed to remove image '" + name + "': code 2, msg No such file or directory.\n"));
}

TEST_F(Ceph_Pool_On_Cluster, removes_an_image_with_snapshots_only_when_asked_to_purge) {
  const std::string name = au_test::unique_ceph_name("psnap");
  ASSERT_TRUE(make_image(name, 4));
  for (const char* snap : {"@s1", "@s2"}) ASSERT_TRUE(rbd("snap create --no-progress " + POOL + "/" + name + snap));
  ASSERT_TRUE(rbd("snap protect " + POOL + "/" + name + "@s2"));
  EXPECT_FALSE(pool_.remove_image(name, false));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to remove image '" + name + "': image is not empty.\n"));
  EXPECT_TRUE(pool_.remove_image(name, true)) << logs_.dump();
  EXPECT_TRUE(logs_.has(LM_WARNING, "Image '" + name + "' is not empty, purging its snapshots.\n"));
  EXPECT_FALSE(exists_on_cluster(name));
}

TEST_F(Ceph_Pool_On_Cluster, keeps_pool_metadata) {
  const std::string key = au_test::unique_ceph_name("au_key");
  cleanup_.commands.push_back("rados -p " + POOL + " rmomapkey rbd_info metadata_" + key);
  const std::string longer(5000, 'v');  // beyond any first guess at the size
  ASSERT_TRUE(pool_.set_metadata(key, longer)) << logs_.dump();
  std::string value, omap;
  ASSERT_TRUE(pool_.get_metadata(key, value)) << logs_.dump();
  EXPECT_EQ(longer, value);
  // librbd keeps pool metadata in the omap of the pool's rbd_info object.
  ASSERT_TRUE(au_test::run_ceph_cli("rados -p " + POOL + " listomapkeys rbd_info", &omap));
  EXPECT_NE(std::string::npos, omap.find("metadata_" + key + "\n")) << omap;
  std::map<std::string, std::string> metadatas{{"stale", "entry"}};
  ASSERT_TRUE(pool_.list_metadatas(metadatas)) << logs_.dump();
  EXPECT_EQ(0u, metadatas.count("stale"));
  EXPECT_EQ(longer, metadatas[key]);

  ASSERT_TRUE(pool_.remove_metadata(key));
  EXPECT_FALSE(pool_.get_metadata(key, value));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to get metadata of pool '" + POOL +
                                      "': code 2, msg No such file or directory.\n"));
  EXPECT_FALSE(pool_.remove_metadata(key));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to remove metadata of pool '" + POOL +
                                      "': code 2, msg No such file or directory.\n"));
}

}  // namespace
