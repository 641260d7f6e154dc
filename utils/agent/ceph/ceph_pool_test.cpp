#include "utils/agent/ceph/ceph_pool.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_group.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_snapshot.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

// Every operation of a pool that was never opened refuses before any librbd call.
TEST(Ceph_Pool_Closed, every_operation_refuses_without_an_io_context) {
  au_test::Log_Capture logs;
  ceph::Ceph_Pool pool;
  pool.pool_name("p1");
  EXPECT_FALSE(static_cast<bool>(pool));

  std::vector<ceph::Image_Spec> images;
  EXPECT_FALSE(pool.list_image(images));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to list images of the pool 'p1': io context wasn't opened.\n"));

  ceph::Ceph_Image image;
  EXPECT_FALSE(pool.open_image("img", image, true));
  EXPECT_TRUE(logs.has(LM_ERROR, "Unable to open image 'img': io context wasn't opened.\n"));
  EXPECT_FALSE(static_cast<bool>(image));

  ceph::Ceph_Snapshot snap;
  int error = 0;
  EXPECT_FALSE(pool.open_snapshot("", "s1", snap, true, &error));
  EXPECT_TRUE(logs.has_check("img_name is empty"));
  EXPECT_FALSE(pool.open_snapshot("img", "", snap, true));
  EXPECT_TRUE(logs.has_check("snap_name is empty"));
  EXPECT_FALSE(pool.open_snapshot("img", "s1", snap, true, &error));
  EXPECT_EQ(-22, error);
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Failed to open snapshot 's1' of image 'img': target pool is not opened.\n"));

  EXPECT_FALSE(pool.new_image("img", 1 << 20, image, 1, 22, 0, 0, false));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to create new image: target pool is not opened.\n"));

  EXPECT_FALSE(pool.remove_image("", true));
  EXPECT_TRUE(logs.has_check("img_name is empty"));
  EXPECT_FALSE(pool.remove_image("img", true));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove image 'img': target pool p1 is not opened.\n"));

  std::string name;
  EXPECT_FALSE(pool.get_pool_name(name));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to get pool name: io context wasn't opened.\n"));

  logs.clear();
  std::map<std::string, std::string> metadatas;
  std::string value;
  EXPECT_FALSE(pool.list_metadatas(metadatas));
  EXPECT_FALSE(pool.get_metadata("k", value));
  EXPECT_FALSE(pool.set_metadata("k", "v"));
  EXPECT_FALSE(pool.remove_metadata("k"));
  ASSERT_EQ(4u, logs.records().size()) << logs.dump();
  for (const auto& record : logs.records())
    EXPECT_NE(std::string::npos, record.text.find(", ctx_.io_ctx_ is NULL:\n")) << record.text;
}

// A librbd without the group, pool-metadata and rbd_list2 functions (an old release):
// each group operation names the missing function and calls nothing, and listing images
// falls back to rbd_list.
TEST(Ceph_Pool_Old_Librbd, group_operations_name_the_missing_function) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  const std::string dir = au_test::fake_ceph_dir();
  ASSERT_TRUE(ceph::Librbd_Wrapper::instance()->open("libfake_rbd_old", dir.c_str()));
  au_test::Log_Capture logs;

  // A stand-in I/O context: nothing in these paths may hand it to a present function
  // other than rbd_list, whose fake answers -ENOSYS without touching it.
  ceph::Ceph_Context ctx;
  static int fake_io = 0;
  ctx.io_ctx_ = std::make_shared<void*>(&fake_io);
  ceph::Ceph_Pool pool(ctx);
  pool.pool_name("old");

  ceph::Ceph_Group group(true);
  std::set<std::string> groups;
  EXPECT_FALSE(pool.new_group("g", group));
  EXPECT_FALSE(pool.new_group("g", {"a", "b"}, group));
  EXPECT_FALSE(pool.open_group("g", group));
  EXPECT_FALSE(pool.list_group(groups));
  EXPECT_FALSE(pool.remove_group("g"));

  std::vector<ceph::Group_Snapshot_Info> snaps;
  std::vector<ceph::Image_Spec> members;
  ceph::Ceph_Image image;
  EXPECT_FALSE(group.create_snapshot("s"));
  EXPECT_FALSE(group.add_image("ceph://old/a"));
  EXPECT_FALSE(group.add_image(image));
  EXPECT_FALSE(group.remove_image("a"));
  EXPECT_FALSE(group.remove_image(image));
  EXPECT_FALSE(group.list_snapshot(snaps));
  EXPECT_FALSE(group.list_image(members));
  EXPECT_FALSE(group.rename("h"));

  const char* missing[] = {"rbd_group_create", "rbd_group_create", "rbd_get_group",
                           "rbd_group_list", "rbd_group_remove", "rbd_group_snap_create",
                           "rbd_group_image_add", "rbd_group_image_add",
                           "rbd_group_image_remove", "rbd_group_image_remove",
                           "rbd_group_snap_list", "rbd_group_image_list", "rbd_group_rename"};
  const auto records = logs.records();
  ASSERT_EQ(sizeof(missing) / sizeof(missing[0]), records.size()) << logs.dump();
  for (size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(LM_ERROR, records[i].priority);
    EXPECT_EQ(std::string("Failed to get symbol ") + missing[i] +
                  "This version of Ceph doesn't support it.\n",
              records[i].text);
  }

  logs.clear();
  std::string value;
  EXPECT_FALSE(pool.get_metadata("k", value));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to get symbol rbd_pool_metadata_getThis version of "
                                 "Ceph doesn't support it.\n")) << logs.dump();

  logs.clear();
  std::vector<ceph::Image_Spec> images;
  EXPECT_FALSE(pool.list_image(images));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to list images of the pool 'old': code 38, msg "
                                 "Function not implemented.\n")) << logs.dump();
}

}  // namespace
