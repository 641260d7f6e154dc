// The handles Ceph_Context shares, on the sandbox cluster: a copy alone keeps the image
// open, and the last copy really closes it (release order and traces: the unit test).
#include <gtest/gtest.h>

#include <string>

#include "tests/integration/ceph/client_test_cluster.h"
#include "tests/integration/ceph/snapshot_test_cluster.h"

namespace {

// True when the cluster sees a client watching (holding open) the image.
bool watched(const std::string& rbd_path) {
  std::string status;
  EXPECT_TRUE(au_test::run_ceph_cli("rbd status " + rbd_path, &status));
  return status.find("Watchers: none") == std::string::npos;
}

TEST(Ceph_Binding_On_Cluster, a_copy_keeps_the_image_open_and_the_last_one_closes_it) {
  AU_REQUIRE_CEPH_OR_SKIP();
  au_test::Test_Cluster cluster;
  ASSERT_TRUE(cluster.connect());
  const std::string name = au_test::unique_ceph_name("bind");
  const std::string rbd_path = std::string(au_test::SANDBOX_RBD_POOL) + "/" + name;
  client_test::Cleanup cleanup;
  cleanup.image(rbd_path);
  ASSERT_TRUE(cluster.create_image(name, 8 << 20, 22));

  ceph::Ceph_Context copy;
  {
    ceph::Ceph_Image image;
    ASSERT_TRUE(cluster.open_image(name, image));
    copy = image.context();
  }
  uint64_t size = 0;
  ASSERT_EQ(0, ceph::rbd_get_size(*copy.img_ctx_, &size));
  EXPECT_EQ(8u << 20, size);
  EXPECT_TRUE(watched(rbd_path));

  copy = ceph::Ceph_Context();
  EXPECT_FALSE(watched(rbd_path));
}

}  // namespace
