// Image handle checks that need no cluster: closed handles, the zeroing guard, the progress
// adapter, and the fallbacks taken against an old librbd (the fake libraries, whose every
// function answers -ENOSYS, so a -38 shows which path reached librbd).
#include "utils/agent/ceph/ceph_image.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

using ceph::Ceph_Image;

std::string lacks(const std::string& sym) {
  return "Failed to get symbol " + sym + "This version of Ceph doesn't support it.\n";
}

// An image whose handle slot holds a dummy value and is never closed.
Ceph_Image fake_open_image() {
  static int dummy = 0;
  ceph::Ceph_Context ctx;
  ctx.img_ctx_ = ceph::Rbd_Image_var(new void*(&dummy), [](void** slot) { delete slot; });
  Ceph_Image image(ctx);
  image.pool_name("rbd");
  image.image_name("img");
  return image;
}

bool bind_fake_rbd(const char* variant) {
  return ceph::Librbd_Wrapper::instance()->open(variant, au_test::fake_ceph_dir().c_str());
}

TEST(Ceph_Image_Checks, closed_handle_refuses_every_operation) {
  au_test::Log_Capture logs;
  Ceph_Image image;
  image.image_name("img");
  char buf[8] = {};
  uint64_t unit = 1, count = 1;
  bool exists = true;
  std::vector<ceph::Snapshot_Info> snaps;
  std::map<std::string, std::string> meta;
  EXPECT_FALSE(static_cast<bool>(image));
  EXPECT_EQ(-EINVAL, image.read(0, 8, buf, 0));
  EXPECT_EQ(-EINVAL, image.write(0, 8, buf, 0));
  EXPECT_EQ(-EINVAL, image.write_zeroes(0, 0));
  EXPECT_EQ(-EINVAL, image.get_snap_namespace_type(1));
  EXPECT_FALSE(image.resize(1 << 20, true, {}));
  EXPECT_FALSE(image.purge_snapshots(true));
  EXPECT_FALSE(image.get_stripe_info(unit, count));
  EXPECT_FALSE(image.set_metadata("k", "v"));
  EXPECT_FALSE(image.list_metadatas(meta));
  EXPECT_EQ(9u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has_check("ctx_.img_ctx_ is NULL")) << logs.dump();

  // A snapshot name is checked before the handle.
  logs.clear();
  EXPECT_FALSE(image.is_snapshot_exist("", exists));
  EXPECT_FALSE(image.remove_snapshot("", 0));
  EXPECT_FALSE(image.rollback("", {}));
  EXPECT_EQ(3u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has_check("snap_name is empty")) << logs.dump();

  logs.clear();
  EXPECT_FALSE(image.list_snapshot(snaps));
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Failed to list snapshots of image 'img': the image wasn't opened.\n"));
  EXPECT_EQ("ceph://rbd/vm1", [] {
    Ceph_Image named;
    named.pool_name("rbd");
    named.image_name("vm1");
    return named.uri();
  }());
}

TEST(Ceph_Image_Checks, zeroing_guard_and_progress_adapter) {
  au_test::Log_Capture logs;
  Ceph_Image image = fake_open_image();
  // Refused before any librbd call: nothing is bound in this test.
  EXPECT_EQ(-EINVAL, image.write_zeroes(0, 4096));
  EXPECT_TRUE(logs.has_check("len(4096) != 0(0)")) << logs.dump();
  EXPECT_EQ(-EINVAL, image.write_zeroes(512, 1));
  EXPECT_TRUE(logs.has_check("len(1) != 0(0)")) << logs.dump();

  EXPECT_EQ(-EINVAL, ceph::progress_cb(1, 2, nullptr));
  EXPECT_TRUE(logs.has_check("arg is NULL")) << logs.dump();
  ceph::Progress_Callback seen = [](uint64_t done, uint64_t total) {
    return static_cast<int>(total - done);
  };
  EXPECT_EQ(7, ceph::progress_cb(3, 10, &seen));
  EXPECT_EQ(0, ceph::dummy_progress_fn(3, 10, nullptr));

  EXPECT_EQ(1024u, ceph::rounding_up_power_2(513, 512));
  EXPECT_EQ(512u, ceph::rounding_up_power_2(512, 512));
  EXPECT_EQ(0u, ceph::rounding_up_power_2(0, 512));
  EXPECT_EQ(512u, ceph::rounding_down_power_2(1023, 512));
}

TEST(Ceph_Image_Fallbacks, old_librbd_takes_the_older_calls_or_names_the_missing_one) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  ASSERT_TRUE(bind_fake_rbd("libfake_rbd_old"));
  au_test::Log_Capture logs;
  Ceph_Image image = fake_open_image();
  char buf[16] = {};

  // Without flags the plain calls serve; with flags the missing "2" form is named.
  EXPECT_EQ(-ENOSYS, image.read(0, sizeof buf, buf, 0));
  EXPECT_EQ(-ENOSYS, image.write(0, sizeof buf, buf, 0));
  EXPECT_EQ(-EOPNOTSUPP, image.read(0, sizeof buf, buf, 1));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_read2"))) << logs.dump();
  EXPECT_EQ(-EOPNOTSUPP, image.write(0, sizeof buf, buf, 1));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_write2"))) << logs.dump();
  // No write_zeroes, no writesame: the zero buffer goes through rbd_write.
  EXPECT_EQ(-ENOSYS, image.write_zeroes(4096, 0));

  // rbd_resize always shrinks and has no progress: it serves only when both are allowed.
  EXPECT_FALSE(image.resize(1024, false, {}));
  EXPECT_FALSE(image.resize(1024, true, [](uint64_t, uint64_t) { return 0; }));
  EXPECT_EQ(2u, logs.count(LM_ERROR, lacks("rbd_resize2"))) << logs.dump();
  EXPECT_FALSE(image.resize(1024, true, {}));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to resize image 'img' to 1024: err 38, msg Function "
                                 "not implemented.\n"))
      << logs.dump();

  EXPECT_FALSE(image.rollback("s1", [](uint64_t, uint64_t) { return 0; }));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_snap_rollback_with_progress"))) << logs.dump();
  EXPECT_FALSE(image.remove_snapshot("s1", 3));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_snap_remove2"))) << logs.dump();
  EXPECT_FALSE(image.remove_snapshot("s1", 0));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove snapshot s1 for image img: err 38, msg "
                                 "Function not implemented.\n"))
      << logs.dump();
  EXPECT_FALSE(image.snap_is_protected("s1"));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_snap_is_protected"))) << logs.dump();
  EXPECT_EQ(-EOPNOTSUPP, image.get_snap_namespace_type(4));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_snap_get_namespace_type"))) << logs.dump();

  std::map<std::string, std::string> meta;
  std::string value;
  EXPECT_FALSE(image.list_metadatas(meta));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_metadata_list"))) << logs.dump();
  EXPECT_FALSE(image.remove_metadata("k"));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_metadata_remove"))) << logs.dump();
  logs.clear();
  EXPECT_FALSE(image.get_metadata("k", value));
  EXPECT_FALSE(image.set_metadata("k", "v"));  // tests the getter
  EXPECT_EQ(2u, logs.count(LM_ERROR, lacks("rbd_metadata_get"))) << logs.dump();

  ceph::Group_Info group;
  EXPECT_FALSE(image.get_group(group));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_get_group"))) << logs.dump();
  EXPECT_EQ("", ceph::Ceph_Snapshot::get_block_name_prefix(image.context()));
  EXPECT_TRUE(logs.has(LM_ERROR, lacks("rbd_get_block_name_prefix"))) << logs.dump();

  logs.clear();
  EXPECT_FALSE(image.purge_snapshots(false));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to list snapshots of image 'img': code 38, msg "
                                 "Function not implemented.\n"))
      << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to purge snapshots of image 'img': failed to list "
                                 "snapshots.\n"))
      << logs.dump();
}

TEST(Ceph_Image_Fallbacks, current_librbd_takes_the_newer_calls) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  ASSERT_TRUE(bind_fake_rbd("libfake_rbd_full"));
  au_test::Log_Capture logs;
  Ceph_Image image = fake_open_image();
  char buf[16] = {};
  EXPECT_EQ(-ENOSYS, image.read(0, sizeof buf, buf, 1));
  EXPECT_EQ(-ENOSYS, image.write_zeroes(0, 0));
  EXPECT_FALSE(image.resize(1024, false, [](uint64_t, uint64_t) { return 0; }));
  EXPECT_FALSE(image.set_metadata("k", "v"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to set metadata of image 'img': code 38, msg Function "
                                 "not implemented.\n"))
      << logs.dump();
  EXPECT_EQ(-ENOSYS, image.get_snap_namespace_type(4));
  EXPECT_FALSE(logs.has_fragment(LM_ERROR, "This version of Ceph")) << logs.dump();
}

}  // namespace
