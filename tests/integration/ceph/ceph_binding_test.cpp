// The bound librados/librbd functions against the sandbox cluster, and the release of the
// handles that Ceph_Context shares.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ceph_env.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_context.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

// Removes the test image whatever happens to the test.
struct Image_Cleanup {
  std::string spec;
  ~Image_Cleanup() { au_test::run_ceph_cli("rbd rm --no-progress " + spec, nullptr); }
};

std::vector<std::string> release_traces(const au_test::Log_Capture& logs) {
  std::vector<std::string> calls;
  for (const auto& r : logs.records()) {
    const size_t at = r.text.find(" called ");
    if (r.priority == LM_DEBUG && at != std::string::npos)
      calls.push_back(r.text.substr(at + 8, r.text.find('(') - at - 8));
  }
  return calls;
}

TEST(Ceph_Binding_On_Cluster, bound_functions_open_an_image_and_the_last_copy_releases_it) {
  AU_REQUIRE_CEPH_OR_SKIP();
  ASSERT_TRUE(ceph::Ceph_Client::open_ceph_libraries());
  const std::string pool = au_test::SANDBOX_RBD_POOL;
  const std::string name = au_test::unique_ceph_name("bind");
  Image_Cleanup cleanup{pool + "/" + name};

  ceph::Ceph_Context copy;
  {
    ceph::Ceph_Context ctx;
    ctx.ctx_ = ceph::make_cluster_var();
    ASSERT_EQ(0, ceph::rados_create(ctx.ctx_.get(), "admin"));
    ASSERT_EQ(0, ceph::rados_conf_read_file(*ctx.ctx_, au_test::ceph_conf_path().c_str()));
    ASSERT_EQ(0, ceph::rados_connect(*ctx.ctx_));

    ctx.io_ctx_ = ceph::make_pool_var();
    ASSERT_EQ(0, ceph::rados_ioctx_create(*ctx.ctx_, pool.c_str(), ctx.io_ctx_.get()));
    int order = 22;
    ASSERT_EQ(0, ceph::rbd_create(*ctx.io_ctx_, name.c_str(), 8 << 20, &order));
    ctx.img_ctx_ = ceph::make_image_var();
    ASSERT_EQ(0, ceph::rbd_open(*ctx.io_ctx_, name.c_str(), ctx.img_ctx_.get(), nullptr));
    copy = ctx;
  }

  // The copy alone keeps cluster, pool and image open.
  uint64_t size = 0;
  ASSERT_EQ(0, ceph::rbd_get_size(*copy.img_ctx_, &size));
  EXPECT_EQ(8u << 20, size);
  std::string status;
  ASSERT_TRUE(au_test::run_ceph_cli("rbd status " + cleanup.spec, &status));
  EXPECT_EQ(std::string::npos, status.find("Watchers: none")) << status;

  au_test::Log_Capture logs;
  ACE::debug(true);
  copy = ceph::Ceph_Context();
  ACE::debug(false);
  EXPECT_EQ((std::vector<std::string>{"Image::rbd_close", "Pool::rados_ioctx_destroy",
                                      "Client::rados_shutdown"}),
            release_traces(logs))
      << logs.dump();
  // Really closed: the cluster no longer sees this client watching the image.
  ASSERT_TRUE(au_test::run_ceph_cli("rbd status " + cleanup.spec, &status));
  EXPECT_NE(std::string::npos, status.find("Watchers: none")) << status;
}

}  // namespace
