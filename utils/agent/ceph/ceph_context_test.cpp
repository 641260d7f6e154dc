// Sharing and release order of the Ceph handles, with the release functions pointed at
// recorders (tests/integration/ceph sees a real image closed by the last copy).
#include "utils/agent/ceph/ceph_context.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/log_capture.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

std::vector<std::string> released;  // "<function> <handle>", in call order

std::string ptr_text(const void* p) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%p", p);
  return buf;
}

int cluster = 0, pool = 0, image = 0;

// A context whose three slots hold (fake) open handles.
ceph::Ceph_Context open_context(ceph::Rbd_Image_var image_slot) {
  ceph::Ceph_Context ctx;
  ctx.ctx_ = ceph::make_cluster_var();
  ctx.io_ctx_ = ceph::make_pool_var();
  ctx.img_ctx_ = std::move(image_slot);
  *ctx.ctx_ = &cluster;
  *ctx.io_ctx_ = &pool;
  *ctx.img_ctx_ = &image;
  return ctx;
}

TEST(Ceph_Context, the_last_owner_releases_image_then_pool_then_cluster_and_only_opened_ones) {
  ceph::rados_shutdown = [](rados_t h) { released.push_back("shutdown " + ptr_text(h)); };
  ceph::rados_ioctx_destroy = [](rados_ioctx_t h) { released.push_back("ioctx_destroy " + ptr_text(h)); };
  ceph::rbd_close = [](rbd_image_t h) {
    released.push_back("rbd_close " + ptr_text(h));
    return 0;
  };
  const std::vector<std::string> in_order = {"rbd_close " + ptr_text(&image), "ioctx_destroy " + ptr_text(&pool),
                                             "shutdown " + ptr_text(&cluster)};
  au_test::Log_Capture logs;
  ACE::debug(true);
  {
    ceph::Ceph_Context first = open_context(ceph::make_image_var());
    first.close_on_destruction_ = false;  // carried along by copies and moves
    ceph::Ceph_Context copy(first);
    ceph::Ceph_Context moved(std::move(first));
    EXPECT_FALSE(first.ctx_ || first.io_ctx_ || first.img_ctx_);
    EXPECT_FALSE(copy.close_on_destruction_ || moved.close_on_destruction_);
    { ceph::Ceph_Context drop = std::move(moved); }
    EXPECT_TRUE(released.empty()) << "released while a copy still holds the handles";
  }
  EXPECT_EQ(in_order, released);
  // Each release is traced just before it happens.
  std::vector<std::string> traces;
  for (const auto& r : logs.records())
    if (r.priority == LM_DEBUG) traces.push_back(r.text.substr(r.text.find(" called ")));
  EXPECT_EQ((std::vector<std::string>{" called Image::rbd_close(" + ptr_text(&image) + ")\n",
                                      " called Pool::rados_ioctx_destroy(" + ptr_text(&pool) + ")\n",
                                      " called Client::rados_shutdown(" + ptr_text(&cluster) + ")\n"}),
            traces);

  // Assignment releases the old handles the same way.
  released.clear();
  ceph::Ceph_Context ctx = open_context(ceph::make_snapshot_var());
  ctx = ceph::Ceph_Context();
  EXPECT_EQ(in_order, released);
  EXPECT_TRUE(logs.has_fragment(LM_DEBUG, " called Snapshot::rbd_close(" + ptr_text(&image))) << logs.dump();

  // Slots whose open never succeeded are freed without a release call or a trace.
  released.clear();
  logs.clear();
  ctx.ctx_ = ceph::make_cluster_var();
  ctx.io_ctx_ = ceph::make_pool_var();
  ctx.img_ctx_ = ceph::make_image_var();
  ctx = ceph::Ceph_Context();
  EXPECT_TRUE(released.empty());
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
  ACE::debug(false);
  ceph::Librados_Wrapper::instance()->close();
  ceph::Librbd_Wrapper::instance()->close();
}

}  // namespace
