// Image checks that need no cluster, and the fallbacks taken against an old librbd (the
// fake libraries answer -ENOSYS everywhere, so -38 shows that a path reached librbd). The
// newer calls of a current librbd are taken on the sandbox cluster (tests/integration/ceph).
#include "utils/agent/ceph/ceph_image.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <string>
#include <tuple>

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

using ceph::Ceph_Image;

std::string lacks(const std::string& sym) {
  return "Failed to get symbol " + sym + "This version of Ceph doesn't support it.\n";
}

// An image whose handle slots hold a dummy value that is never closed.
Ceph_Image fake_open_image() {
  static int dummy = 0;
  ceph::Ceph_Context ctx;
  const auto slot_only = [](void** slot) { delete slot; };
  ctx.io_ctx_ = ceph::Rados_IO_Ctx_var(new void*(&dummy), slot_only);
  ctx.img_ctx_ = ceph::Rbd_Image_var(new void*(&dummy), slot_only);
  Ceph_Image image(ctx);
  image.image_name("img");
  return image;
}

TEST(Ceph_Image_Checks, zeroing_guard_progress_adapter_and_closed_handle) {
  au_test::Log_Capture logs;
  Ceph_Image image = fake_open_image();  // nothing is bound: any librbd call would crash
  EXPECT_EQ(-EINVAL, image.write_zeroes(0, 4096));
  EXPECT_EQ(-EINVAL, image.write_zeroes(512, 1));
  EXPECT_TRUE(logs.has_check("len(4096) != 0(0)")) << logs.dump();
  EXPECT_TRUE(logs.has_check("len(1) != 0(0)")) << logs.dump();

  EXPECT_EQ(-EINVAL, ceph::progress_cb(1, 2, nullptr));
  EXPECT_TRUE(logs.has_check("arg is NULL")) << logs.dump();
  ceph::Progress_Callback left = [](uint64_t done, uint64_t total) {
    return static_cast<int>(total - done);
  };
  EXPECT_EQ(7, ceph::progress_cb(3, 10, &left));
  EXPECT_EQ(1024u, ceph::rounding_up_power_2(513, 512));
  EXPECT_EQ(512u, ceph::rounding_up_power_2(512, 512));
  EXPECT_EQ(512u, ceph::rounding_down_power_2(1023, 512));

  // A snapshot name is checked before the handle.
  Ceph_Image closed;
  logs.clear();
  EXPECT_FALSE(closed.rollback("", {}));
  EXPECT_EQ(-EINVAL, closed.write_zeroes(0, 0));
  EXPECT_TRUE(logs.has_check("snap_name is empty")) << logs.dump();
  EXPECT_TRUE(logs.has_check("ctx_.img_ctx_ is NULL")) << logs.dump();
  EXPECT_EQ(2u, logs.records().size()) << logs.dump();
}

// Which zeroing call runs, and the op flags that reach it: 8 (sequential) whenever
// rbd_write2 exists, else none. librbd is replaced by recorders.
std::string zeroing_call;
int zeroing_flags = -1;

TEST(Ceph_Image_Checks, zeroing_takes_the_first_available_call_with_sequential_flags) {
  const auto saved = std::make_tuple(ceph::rbd_write_zeroes, ceph::rbd_writesame, ceph::rbd_write2,
                                     ceph::rbd_write);
  const auto zeroes = [](rbd_image_t, uint64_t, uint64_t, int, int flags) -> ssize_t {
    zeroing_call = "rbd_write_zeroes";
    zeroing_flags = flags;
    return 0;
  };
  const auto same = [](rbd_image_t, uint64_t, size_t, const char*, size_t, int flags) -> ssize_t {
    zeroing_call = "rbd_writesame";
    zeroing_flags = flags;
    return 0;
  };
  const auto write2 = [](rbd_image_t, uint64_t, size_t, const char*, int flags) -> ssize_t {
    zeroing_call = "rbd_write2";
    zeroing_flags = flags;
    return 0;
  };
  const auto write1 = [](rbd_image_t, uint64_t, size_t, const char*) -> ssize_t {
    zeroing_call = "rbd_write";
    zeroing_flags = 0;
    return 0;
  };
  struct Case {
    bool has_zeroes, has_same, has_write2;
    const char* call;
    int flags;
  } cases[] = {
      {true, true, true, "rbd_write_zeroes", 8},  {true, true, false, "rbd_write_zeroes", 0},
      {false, true, true, "rbd_writesame", 8},    {false, true, false, "rbd_writesame", 0},
      {false, false, true, "rbd_write2", 8},      {false, false, false, "rbd_write", 0},
  };
  Ceph_Image image = fake_open_image();
  for (const Case& c : cases) {
    ceph::rbd_write_zeroes = c.has_zeroes ? +zeroes : nullptr;
    ceph::rbd_writesame = c.has_same ? +same : nullptr;
    ceph::rbd_write2 = c.has_write2 ? +write2 : nullptr;
    ceph::rbd_write = write1;
    zeroing_call.clear();
    zeroing_flags = -1;
    EXPECT_EQ(0, image.write_zeroes(4096, 0));
    EXPECT_EQ(c.call, zeroing_call);
    EXPECT_EQ(c.flags, zeroing_flags) << c.call;
  }
  std::tie(ceph::rbd_write_zeroes, ceph::rbd_writesame, ceph::rbd_write2, ceph::rbd_write) = saved;
}

TEST(Ceph_Image_Fallbacks, old_librbd_takes_the_older_calls_or_names_the_missing_one) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  ASSERT_TRUE(ceph::Librbd_Wrapper::instance()->open("libfake_rbd_old",
                                                     au_test::fake_ceph_dir().c_str()));
  au_test::Log_Capture logs;
  Ceph_Image image = fake_open_image();
  char buf[16] = {};
  std::map<std::string, std::string> meta;
  std::string value;
  ceph::Group_Info group;
  const auto progress = [](uint64_t, uint64_t) { return 0; };

  // Served by the older call.
  EXPECT_EQ(-ENOSYS, image.read(0, sizeof buf, buf, 0));
  EXPECT_EQ(-ENOSYS, image.write(0, sizeof buf, buf, 0));
  EXPECT_EQ(-ENOSYS, image.write_zeroes(4096, 0));  // through the zero buffer and rbd_write
  EXPECT_FALSE(image.resize(1024, true, {}));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to resize image 'img' to 1024: err 38, msg Function "
                                 "not implemented.\n"));
  EXPECT_FALSE(image.remove_snapshot("s1", 0));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to remove snapshot s1 for image img: err 38, msg "
                                 "Function not implemented.\n"));
  const ceph::Diff_Callback go_on = [](uint64_t, uint64_t, int) { return 1; };
  // Asking for the parent alone takes rbd_diff_iterate (which answers -ENOSYS here).
  EXPECT_FALSE(ceph::Ceph_Snapshot::diff_iterate(image.context(), "", go_on, 0, 16, true, false));
  EXPECT_FALSE(logs.has_fragment(LM_ERROR, "This version of Ceph")) << logs.dump();
  bool exists = true;  // no rbd_snap_exists: opening the snapshot answers
  EXPECT_FALSE(image.is_snapshot_exist("s1", exists));
  EXPECT_FALSE(exists);
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to check whether snapshot s1 of image 'img' exists: "
                                 "code 38, msg Function not implemented.\n"))
      << logs.dump();

  // Refused, naming what is missing (rbd_resize shrinks always and has no progress).
  const std::pair<bool, const char*> refused[] = {
      {image.read(0, sizeof buf, buf, 1) == -EOPNOTSUPP, "rbd_read2"},
      {image.write(0, sizeof buf, buf, 1) == -EOPNOTSUPP, "rbd_write2"},
      {!image.resize(1024, false, {}), "rbd_resize2"},
      {!image.resize(1024, true, progress), "rbd_resize2"},
      {!image.rollback("s1", progress), "rbd_snap_rollback_with_progress"},
      {!image.remove_snapshot("s1", 3), "rbd_snap_remove2"},
      {!image.snap_is_protected("s1"), "rbd_snap_is_protected"},
      {image.get_snap_namespace_type(4) == -EOPNOTSUPP, "rbd_snap_get_namespace_type"},
      {!image.list_metadatas(meta), "rbd_metadata_list"},
      {!image.get_metadata("k", value), "rbd_metadata_get"},
      {!image.set_metadata("k", "v"), "rbd_metadata_get"},  // the getter, on purpose
      {!image.remove_metadata("k"), "rbd_metadata_remove"},
      {!image.get_group(group), "rbd_get_group"},
      {ceph::Ceph_Snapshot::get_block_name_prefix(image.context()).empty(),
       "rbd_get_block_name_prefix"},
      {!ceph::Ceph_Snapshot::diff_iterate(image.context(), "", go_on, 0, 16, false, true),
       "rbd_diff_iterate2"},
  };
  for (const auto& r : refused) {
    EXPECT_TRUE(r.first) << r.second;
    EXPECT_TRUE(logs.has(LM_ERROR, lacks(r.second))) << logs.dump();
  }
}

}  // namespace
