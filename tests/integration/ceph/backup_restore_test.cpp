// Backups of sandbox images into pieces of a directory pool and restores of those pieces
// into new images, checked byte for byte against `rbd export` of the source snapshot; and
// the image writer's stop rules (short write, cancel, failure) on the real cluster.
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "sim/backupd/backupd_sim.h"
#include "tests/integration/ceph/backup_fixture.h"
#include "utils/agent/ceph/ceph_image_writer.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/rbd_handle.h"

namespace {

using ceph_test::export_sum;
using ceph_test::MiB;
using ceph_test::POOL;
using ceph_test::rbd;

// Bytes of the RADOS objects holding data, as `rbd du` counts them.
uint64_t allocated(const std::string& rbd_path) {
  uint64_t bytes = 0;
  for (const auto& [offset, length, exists] : ceph_test::rbd_diff("--whole-object " + POOL + "/" + rbd_path))
    if (exists) bytes += length;
  return bytes;
}

class Backup_Restore : public ceph_test::Backup_Fixture {
 protected:
  // A new image of the source's size, restored from `pieces` in order.
  // With `zero_copy`, librbd writes from the caller's buffers (the window must copy).
  bool restore_pieces(const std::string& target, uint64_t size, const std::vector<std::string>& pieces,
                      bool zero_copy = false) {
    cleanup_.image(target);
    ceph::Ceph_Image image;
    if (!pool_.new_image(target, size, image, 1 | 4 | 8 | 16, 22, 0, 0, false)) return false;
    if (zero_copy && !rbd("config image set " + POOL + "/" + target + " rbd_disable_zero_copy_writes false"))
      return false;
    ceph::Ceph_Image_Writer w(factory_);
    if (!w.open(*client_, "ceph://" + POOL + "/" + target)) return false;
    EXPECT_EQ(!zero_copy, ceph::rbd_handle::writes_are_copied(w.image().context())) << target;
    for (const std::string& p : pieces)
      if (!w.write_from(pool_io_, p, 4 * MiB, nullptr)) return false;
    return true;
  }
};

// Full backup of @s1 and incremental @s1..@s2, each restored and compared with the source.
TEST_F(Backup_Restore, restored_images_equal_their_source_snapshots) {
  struct Case {
    const char* what;
    uint64_t size;  // bytes
    std::vector<std::tuple<uint64_t, uint64_t, char>> before, after;  // writes around s1
    bool discard_between;
    bool zero_copy;  // the restore target has librbd write from our buffers
  };
  const uint64_t odd = 10 * MiB + 4096;  // not a multiple of the 64 KiB chunk
  const std::vector<Case> cases = {
      {"empty", 16 * MiB, {}, {}, false, false},
      {"fully written", 16 * MiB, {{0, 16 * MiB, 'r'}}, {{3 * MiB, 5000, 't'}}, false, true},
      {"discards between", 24 * MiB, {{0, 12 * MiB, 't'}, {20 * MiB, MiB, 'r'}}, {{8 * MiB, 4096, 'r'}}, true, false},
      {"odd size", odd, {{odd - 8192, 8192, 'r'}, {MiB, 300, 't'}}, {{odd - 100, 100, 't'}}, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string src = au_test::unique_ceph_name("bk-src");
    cleanup_.image(src);
    ASSERT_TRUE(rbd("create --object-size 4M --size " + std::to_string(c.size / 1024) + "K " + POOL + "/" + src));
    for (const auto& [off, len, kind] : c.before) write(src, off, len, kind);
    ASSERT_TRUE(snap(src, "s1"));
    if (c.discard_between) {  // a partial object and a whole one
      ceph::Ceph_Image image;
      ASSERT_TRUE(pool_.open_image(src, image, false));
      ASSERT_LE(0, ceph::rbd_discard(static_cast<rbd_image_t>(*image.context().img_ctx_), 2 * MiB, 6 * MiB));
    }
    for (const auto& [off, len, kind] : c.after) write(src, off, len, kind);
    ASSERT_TRUE(snap(src, "s2"));

    ASSERT_TRUE(backup(src + "@s1", "", src + "/full"));
    ASSERT_TRUE(backup(src + "@s2", "s1", src + "/incr"));
    ASSERT_TRUE(restore_pieces(src + "-r1", c.size, {src + "/full"}));
    EXPECT_EQ(export_sum(src + "@s1"), export_sum(src + "-r1"));
    ASSERT_TRUE(restore_pieces(src + "-r2", c.size, {src + "/full", src + "/incr"}, c.zero_copy));
    EXPECT_EQ(export_sum(src + "@s2"), export_sum(src + "-r2"));
    EXPECT_LE(allocated(src + "-r2"), allocated(src + "@s2")) << "a restore must keep the image sparse";
  }
}

TEST_F(Backup_Restore, a_clone_is_backed_up_with_its_parents_data) {
  const std::string parent = au_test::unique_ceph_name("bk-parent"), clone = parent + "-clone";
  cleanup_.image(clone);
  ASSERT_TRUE(make_image(parent, 12));
  write(parent, MiB, 3 * MiB, 'r');
  ASSERT_TRUE(snap(parent, "base") && rbd("snap protect " + POOL + "/" + parent + "@base"));
  ASSERT_TRUE(rbd("clone " + POOL + "/" + parent + "@base " + POOL + "/" + clone));
  write(clone, 8 * MiB, 4096, 't');
  ASSERT_TRUE(snap(clone, "c1"));
  ceph::Backup_Totals t;
  ASSERT_TRUE(backup(clone + "@c1", "", clone + "/full", 16, &t));
  EXPECT_LE(3 * MiB + 4096, t.bytes_read) << "the parent's data and the clone's own";
  ASSERT_TRUE(restore_pieces(clone + "-r", 12 * MiB, {clone + "/full"}));
  EXPECT_EQ(export_sum(clone + "@c1"), export_sum(clone + "-r"));
}

// The agent's way: pools named by the backup server, connections from the factory.
TEST_F(Backup_Restore, pieces_move_through_a_pool_the_backup_server_names) {
  au_sim::Backupd_Sim backupd;
  ASSERT_TRUE(backupd.start());
  backupd.add_pool("daily", "file://" + dir_.path());
  IO_Connection_Factory factory(Client_IO_Base::Options(), 0);
  factory.options().bounds.local_roots = {dir_.path()};
  ASSERT_TRUE(factory.init_upstream("127.0.0.1", backupd.port(), false, ""));
  const std::string src = au_test::unique_ceph_name("bk-named");
  ASSERT_TRUE(make_image(src, 8));
  write(src, MiB, 2 * MiB, 't');
  ASSERT_TRUE(snap(src, "s1"));

  ceph::Ceph_Image_Backup b(factory);
  ASSERT_TRUE(b.open(*client_, "ceph://" + POOL + "/" + src + "@s1"));
  ASSERT_TRUE(b.backup("daily", "named/full", "", 16, nullptr));
  cleanup_.image(src + "-r");
  ceph::Ceph_Image target;
  ASSERT_TRUE(pool_.new_image(src + "-r", 8 * MiB, target, 1, 22, 0, 0, false));
  ceph::Ceph_Image_Writer w(factory);
  ASSERT_TRUE(w.open(*client_, "ceph://" + POOL + "/" + src + "-r"));
  uint64_t bytes_read = 0;
  ASSERT_TRUE(w.write("daily", "named/full", 0, &bytes_read)) << logs_.dump();
  EXPECT_LT(0u, bytes_read);
  EXPECT_EQ(export_sum(src + "@s1"), export_sum(src + "-r"));
  EXPECT_FALSE(w.write("weekly", "named/full", 0, nullptr)) << "a pool the server does not know";
  EXPECT_TRUE(logs_.has_check("io is NULL")) << logs_.dump();
}

// A short write (the target ends 4 KiB early), a cancel after the first block, a missing
// rbd_write2 with and without flags: each with the windowed and the in-line path.
TEST_F(Backup_Restore, the_writer_stops_where_it_must) {
  const std::string src = au_test::unique_ceph_name("bk-stop");
  ASSERT_TRUE(make_image(src, 16));
  write(src, 0, 16 * MiB, 't');
  ASSERT_TRUE(snap(src, "s1"));
  ASSERT_TRUE(backup(src + "@s1", "", "stop/full"));
  const auto saved = std::make_tuple(ceph::rbd_write2, ceph::rbd_aio_write, ceph::rbd_aio_write2);
  for (const bool windowed : {true, false}) {
    SCOPED_TRACE(windowed ? "windowed" : "in line");
    if (!windowed) ceph::rbd_aio_write = nullptr;
    const std::string target = src + (windowed ? "-w" : "-s");
    cleanup_.image(target);
    ceph::Ceph_Image image;
    ASSERT_TRUE(pool_.new_image(target, 16 * MiB - 4096, image, 1, 22, 0, 0, false));
    ceph::Ceph_Image_Writer w(factory_);
    ASSERT_TRUE(w.open(*client_, "ceph://" + POOL + "/" + target));
    uint64_t progressed = 0;
    w.progress_callback() = [&](uint64_t n) { progressed += n; };
    EXPECT_FALSE(w.write_from(pool_io_, "stop/full", MiB, nullptr)) << "short last block";
    EXPECT_EQ(15 * MiB, progressed);

    int asked = 0;
    progressed = 0;
    w.cancel_callback() = [&] { return ++asked == 1; };
    EXPECT_FALSE(w.write_from(pool_io_, "stop/full", MiB, nullptr));
    EXPECT_EQ(1, asked);
    EXPECT_EQ(MiB, progressed) << "the first block only";

    w.cancel_callback() = nullptr;
    ceph::rbd_write2 = nullptr;
    ceph::rbd_aio_write2 = nullptr;
    logs_.clear();
    EXPECT_FALSE(w.write_from(pool_io_, "stop/full", MiB, nullptr));
    EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to get symbol rbd_write2This version of Ceph doesn't support it.\n"))
        << logs_.dump();
    ASSERT_TRUE(image.resize(16 * MiB, false, nullptr));
    w.write_flag() = 0;
    EXPECT_TRUE(w.write_from(pool_io_, "stop/full", MiB, nullptr)) << logs_.dump();
    EXPECT_EQ(export_sum(src + "@s1"), export_sum(target));
    std::tie(ceph::rbd_write2, ceph::rbd_aio_write, ceph::rbd_aio_write2) = saved;
  }
}

// Failures before any byte moves: no pool id, a missing piece, a cancelled backup (which
// leaves no piece behind).
TEST_F(Backup_Restore, failures_leave_nothing_behind) {
  const std::string src = au_test::unique_ceph_name("bk-fail");
  ASSERT_TRUE(make_image(src, 8));
  write(src, 0, 8 * MiB, 'r');
  ASSERT_TRUE(snap(src, "s1"));
  ceph::Ceph_Image_Writer w(factory_);
  const std::string image = "ceph://" + POOL + "/" + src;
  // Opening from options: no configuration at all, an image that is not there, a file.
  EXPECT_FALSE(w.open(ceph::Options{"admin", "", {}}, image));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Empty Ceph config for Ceph client 'admin'.\n")) << logs_.dump();
  const ceph::Options inline_conf{"admin", "", ceph::Ceph_Config(au_test::ceph_conf_text()).options()};
  EXPECT_FALSE(w.open(inline_conf, image + "-missing"));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to open Ceph Image '" + image + "-missing' by Ceph client 'admin'.\n"));
  ASSERT_TRUE(w.open(ceph::Options{"admin", au_test::ceph_conf_path(), {}}, image)) << logs_.dump();
  EXPECT_FALSE(w.write("", "p", 0, nullptr));
  EXPECT_TRUE(logs_.has_check("pool_id is empty")) << logs_.dump();
  EXPECT_FALSE(w.write_from(pool_io_, "no/such/piece", 0, nullptr));
  EXPECT_TRUE(logs_.has_fragment(LM_ERROR, "Failed to open piece 'no/such/piece' for reading: "));

  ceph::Ceph_Image_Backup b(factory_);
  ASSERT_TRUE(b.open(*client_, "ceph://" + POOL + "/" + src + "@s1"));
  bool started = false;  // the scan runs; the first stored block asks to stop
  b.progress_callback() = [&](uint64_t, uint64_t) { started = true; };
  b.cancel_callback() = [&] { return started; };
  EXPECT_FALSE(b.backup_to(pool_io_, "cancelled", "", 16, nullptr));
  EXPECT_TRUE(logs_.has_fragment(LM_ERROR, "Cancelled backup of 'ceph://" + POOL + "/" + src + "@s1'"));
  std::vector<std::string> names;
  ASSERT_TRUE(pool_io_.list("", names));
  EXPECT_TRUE(names.empty()) << names.front();
}

}  // namespace
