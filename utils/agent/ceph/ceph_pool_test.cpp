#include "utils/agent/ceph/ceph_pool.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_group.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

// A pool never opened refuses before any librbd call.
TEST(Ceph_Pool_Closed, refuses_without_an_io_context) {
  au_test::Log_Capture logs;
  ceph::Ceph_Pool pool;
  pool.pool_name("p1");
  ceph::Ceph_Image image;
  std::string value;
  EXPECT_FALSE(pool.open_image("img", image, true));
  EXPECT_FALSE(pool.remove_image("img", true));
  EXPECT_FALSE(pool.get_metadata("k", value));
  EXPECT_EQ(3u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Unable to open image 'img': io context wasn't opened.\n"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove image 'img': target pool p1 is not opened.\n"));
  EXPECT_TRUE(logs.has_check("ctx_.io_ctx_ is NULL"));
}

// An old librbd without group, pool-metadata and rbd_list2 functions: each group operation
// names the missing function and calls nothing; listing images falls back to rbd_list.
TEST(Ceph_Pool_Old_Librbd, group_operations_name_the_missing_function) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  ASSERT_TRUE(
      ceph::Librbd_Wrapper::instance()->open("libfake_rbd_old", au_test::fake_ceph_dir().c_str()));
  au_test::Log_Capture logs;
  // A stand-in I/O context; only rbd_list may see it, and the fake never reads it.
  static int fake_io = 0;
  ceph::Ceph_Context ctx;
  ctx.io_ctx_ = std::make_shared<void*>(&fake_io);
  ceph::Ceph_Pool pool(ctx);
  pool.pool_name("old");
  ceph::Ceph_Group group(true);
  ceph::Ceph_Image image;
  std::set<std::string> groups;
  std::vector<ceph::Group_Snapshot_Info> snaps;
  std::vector<ceph::Image_Spec> listed;
  const std::vector<std::pair<const char*, std::function<bool()>>> calls = {
      {"rbd_group_create", [&] { return pool.new_group("g", {"a"}, group); }},
      {"rbd_get_group", [&] { return pool.open_group("g", group); }},
      {"rbd_group_list", [&] { return pool.list_group(groups); }},
      {"rbd_group_remove", [&] { return pool.remove_group("g"); }},
      {"rbd_group_snap_create", [&] { return group.create_snapshot("s"); }},
      {"rbd_group_image_add", [&] { return group.add_image("ceph://old/a"); }},
      {"rbd_group_image_remove", [&] { return group.remove_image(image); }},
      {"rbd_group_snap_list", [&] { return group.list_snapshot(snaps); }},
      {"rbd_group_image_list", [&] { return group.list_image(listed); }},
      {"rbd_group_rename", [&] { return group.rename("h"); }},
      {"rbd_pool_metadata_set", [&] { return pool.set_metadata("k", "v"); }}};
  for (const auto& call : calls) {
    logs.clear();
    EXPECT_FALSE(call.second());
    ASSERT_EQ(1u, logs.records().size()) << logs.dump();
    EXPECT_TRUE(logs.has(LM_ERROR, std::string("Failed to get symbol ") + call.first +
                                       "This version of Ceph doesn't support it.\n"))
        << logs.dump();
  }
  logs.clear();
  EXPECT_FALSE(pool.list_image(listed));
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Failed to list images of the pool 'old': code 38, msg "
                       "Function not implemented.\n"))
      << logs.dump();
}

}  // namespace
