// Ceph_Pool on the sandbox cluster: image creation, listing, opening and removal (with
// snapshots, protected ones, and while another client holds the image), and pool metadata.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tests/integration/ceph/client_test_cluster.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace {

const std::string POOL = au_test::SANDBOX_RBD_POOL;
constexpr unsigned long LAYERING = 1;  // RBD_FEATURE_LAYERING: snapshots can be protected

bool listed(ceph::Ceph_Pool& pool, const std::string& name, std::string* id = nullptr) {
  std::vector<ceph::Image_Spec> images;
  EXPECT_TRUE(pool.list_image(images));
  for (const auto& spec : images) {
    if (spec.name != name) continue;
    if (id != nullptr) *id = spec.id;
    return true;
  }
  return false;
}

bool exists_on_cluster(const std::string& name) {
  return au_test::run_ceph_cli("rbd info " + POOL + "/" + name + " >/dev/null 2>&1", nullptr);
}

class Ceph_Pool_On_Cluster : public ::testing::Test {
 protected:
  void SetUp() override {
    AU_REQUIRE_CEPH_OR_SKIP();
    client_ = client_test::connect_sandbox();
    ASSERT_TRUE(client_);
    ASSERT_TRUE(client_->open_pool(POOL, pool_));
  }
  std::unique_ptr<ceph::Ceph_Client> client_;
  ceph::Ceph_Pool pool_;
};

TEST_F(Ceph_Pool_On_Cluster, creates_lists_opens_and_removes_images) {
  au_test::Log_Capture logs;
  const std::string name = au_test::unique_ceph_name("pimg");
  client_test::Image_Cleanup cleanup{POOL + "/" + name};

  ceph::Ceph_Image image;
  ASSERT_TRUE(pool_.new_image(name, 4 << 20, image, LAYERING, 22, 0, 0, false)) << logs.dump();
  EXPECT_TRUE(static_cast<bool>(image));
  EXPECT_EQ(name, image.image_name());
  EXPECT_EQ(POOL, image.pool_name());
  EXPECT_EQ(4u << 20, image.size());
  std::string id;
  ASSERT_TRUE(listed(pool_, name, &id));
  EXPECT_FALSE(id.empty());

  logs.clear();
  ceph::Ceph_Image again;
  EXPECT_FALSE(pool_.new_image(name, 4 << 20, again, LAYERING, 22, 0, 0, false));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to create image '" + name +
                                     "': code -17, msg File exists.\n")) << logs.dump();
  EXPECT_FALSE(pool_.open_image(name + "-none", again, false));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open image '" + name +
                                     "-none': code 2, msg No such file or directory.\n"));
  EXPECT_FALSE(static_cast<bool>(again));

  // A writable handle watches the image: removal is refused at once, never retried.
  logs.clear();
  EXPECT_FALSE(pool_.remove_image(name, true));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove image '" + name + "': image is busy.\n"))
      << logs.dump();
  EXPECT_TRUE(exists_on_cluster(name));

  // A read-only handle does not.
  image.close_image();
  ceph::Ceph_Image reader;
  ASSERT_TRUE(pool_.open_image(name, reader, true));
  logs.clear();
  EXPECT_TRUE(pool_.remove_image(name, false)) << logs.dump();
  EXPECT_FALSE(exists_on_cluster(name));
  EXPECT_FALSE(listed(pool_, name));

  logs.clear();
  EXPECT_FALSE(pool_.remove_image(name, false));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove image '" + name +
                                     "': code 2, msg No such file or directory.\n")) << logs.dump();
}

TEST_F(Ceph_Pool_On_Cluster, removes_an_image_with_snapshots_only_when_asked_to_purge) {
  au_test::Log_Capture logs;
  const std::string name = au_test::unique_ceph_name("psnap");
  client_test::Image_Cleanup cleanup{POOL + "/" + name};
  {
    ceph::Ceph_Image image;
    ceph::Ceph_Snapshot s1, s2;
    ASSERT_TRUE(pool_.new_image(name, 4 << 20, image, LAYERING, 22, 0, 0, false));
    ASSERT_TRUE(image.new_snapshot("s1", s1));
    ASSERT_TRUE(image.new_snapshot("s2", s2));
  }
  ASSERT_TRUE(au_test::run_ceph_cli("rbd snap protect " + POOL + "/" + name + "@s2", nullptr));

  logs.clear();
  EXPECT_FALSE(pool_.remove_image(name, false));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove image '" + name + "': image is not empty.\n"))
      << logs.dump();
  EXPECT_TRUE(exists_on_cluster(name));

  logs.clear();
  EXPECT_TRUE(pool_.remove_image(name, true)) << logs.dump();
  EXPECT_TRUE(logs.has(LM_WARNING, "Image '" + name + "' is not empty, purging its snapshots.\n"))
      << logs.dump();
  EXPECT_FALSE(exists_on_cluster(name));
}

TEST_F(Ceph_Pool_On_Cluster, keeps_pool_metadata) {
  au_test::Log_Capture logs;
  const std::string key = au_test::unique_ceph_name("au_key");
  struct Key_Cleanup {
    std::string key;
    ~Key_Cleanup() {
      au_test::run_ceph_cli(
          "rados -p " + POOL + " rmomapkey rbd_info metadata_" + key + " 2>/dev/null", nullptr);
    }
  } cleanup{key};

  ASSERT_TRUE(pool_.set_metadata(key, "first value")) << logs.dump();
  std::string value;
  ASSERT_TRUE(pool_.get_metadata(key, value)) << logs.dump();
  EXPECT_EQ("first value", value);
  // librbd keeps pool metadata in the omap of the pool's rbd_info object.
  std::string out;
  ASSERT_TRUE(au_test::run_ceph_cli("rados -p " + POOL + " listomapkeys rbd_info", &out));
  EXPECT_NE(std::string::npos, out.find("metadata_" + key + "\n")) << out;

  const std::string longer(5000, 'v');  // more than any first guess at the size
  ASSERT_TRUE(pool_.set_metadata(key, longer));
  std::map<std::string, std::string> metadatas{{"stale", "entry"}};
  ASSERT_TRUE(pool_.list_metadatas(metadatas)) << logs.dump();
  EXPECT_EQ(0u, metadatas.count("stale"));
  EXPECT_EQ(longer, metadatas[key]);
  ASSERT_TRUE(pool_.get_metadata(key, value));
  EXPECT_EQ(longer, value);

  ASSERT_TRUE(pool_.remove_metadata(key));
  logs.clear();
  EXPECT_FALSE(pool_.get_metadata(key, value));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to get metadata of pool '" + POOL +
                                     "': code 2, msg No such file or directory.\n")) << logs.dump();
  EXPECT_FALSE(pool_.remove_metadata(key));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove metadata of pool '" + POOL +
                                     "': code 2, msg No such file or directory.\n")) << logs.dump();
  ASSERT_TRUE(pool_.list_metadatas(metadatas));
  EXPECT_EQ(0u, metadatas.count(key));
}

TEST_F(Ceph_Pool_On_Cluster, an_empty_pool_lists_no_images) {
  const std::string pool_name = au_test::unique_ceph_name("pempty");
  struct Pool_Cleanup {
    std::string name;
    ~Pool_Cleanup() {
      au_test::run_ceph_cli("ceph osd pool rm " + name + " " + name +
                                " --yes-i-really-really-mean-it >/dev/null 2>&1",
                            nullptr);
    }
  } cleanup{pool_name};
  ASSERT_TRUE(au_test::run_ceph_cli("ceph osd pool create " + pool_name + " 8 >/dev/null 2>&1",
                                    nullptr));
  ceph::Ceph_Pool empty;
  ASSERT_TRUE(client_->open_pool(pool_name, empty));
  std::vector<ceph::Image_Spec> images(1);
  EXPECT_TRUE(empty.list_image(images));
  EXPECT_EQ(1u, images.size());  // appended to, nothing added
}

}  // namespace
