// The Ceph source of the data plane on sandbox images: every changed byte in a piece
// whatever its alignment and the image's size, the object map narrowing the scan, sizes
// changing between snapshots, and what a piece names as its source and base. Restores go
// through the chain into RBD images and are compared with `rbd export` of the snapshot.
#include <ctime>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/integration/ceph/backup_fixture.h"

namespace {

using ceph_test::export_sum;
using ceph_test::MiB;
using ceph_test::POOL;
using ceph_test::rbd;

class Backup_Source : public ceph_test::Backup_Fixture {};

// Bytes of the RADOS objects holding data, as `rbd du` counts them.
uint64_t allocated(const std::string& rbd_path) {
  uint64_t bytes = 0;
  for (const auto& [offset, length, exists] : ceph_test::rbd_diff("--whole-object " + POOL + "/" + rbd_path))
    if (exists) bytes += length;
  return bytes;
}

// An 8 KiB change at 60 KiB on the 64 KiB grid, 100 bytes across an object boundary, an
// image size off the grid, and the same without the object map.
TEST_F(Backup_Source, incrementals_hold_every_changed_byte) {
  struct Case {
    const char* what;
    uint64_t size;
    std::string args;
    std::vector<std::pair<uint64_t, uint64_t>> changes;
  };
  const uint64_t odd = 43 * MiB + 64 * 1024;
  const std::vector<Case> cases = {
      {"8 KiB at 60 KiB", 16 * MiB, "--object-size 4M", {{61440, 8192}}},
      {"100 bytes across objects", 16 * MiB, "--object-size 4M", {{4 * MiB - 50, 100}}},
      {"size off the grid", odd, "--object-size 4M", {{61440, 8192}, {odd - 100, 100}}},
      {"no object map", 16 * MiB, "--object-size 1M --image-feature layering", {{61440, 8192}, {MiB - 50, 100}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string src = au_test::unique_ceph_name("bs-exact");
    ASSERT_TRUE(create(src, c.size, c.args));
    write(src, 0, c.size, 'r');
    ASSERT_TRUE(snap(src, "s1"));
    for (const auto& [offset, length] : c.changes) write(src, offset, length, 't');
    ASSERT_TRUE(snap(src, "s2"));
    ceph::Backup_Totals t;
    ASSERT_TRUE(backup(src + "@s1", "", src + "/full"));
    ASSERT_TRUE(backup(src + "@s2", "s1", src + "/incr", 16, &t)) << logs_.dump();
    EXPECT_EQ(c.args.find("layering") == std::string::npos, t.by_object_map);
    ASSERT_TRUE(restore(src + "-r", {src + "/full", src + "/incr"}, false)) << logs_.dump();
    EXPECT_EQ(export_sum(src + "@s2"), export_sum(src + "-r"));
  }
}

// Grown with data in the new part, shrunk, grown back over what the shrink cut; each
// restored from its newest piece into a new image, and the full piece over a larger image.
TEST_F(Backup_Source, sizes_change_between_snapshots) {
  const std::string src = au_test::unique_ceph_name("bs-size");
  ASSERT_TRUE(create(src, 8 * MiB));
  write(src, 0, 8 * MiB, 'r');
  ASSERT_TRUE(snap(src, "s1"));
  ASSERT_TRUE(resize(src, 20 * MiB + 4096));
  write(src, 12 * MiB + 10, 300, 't');
  ASSERT_TRUE(snap(src, "s2"));
  ASSERT_TRUE(resize(src, 6 * MiB - 4096));
  write(src, MiB, 1000, 't');
  ASSERT_TRUE(snap(src, "s3"));
  ASSERT_TRUE(resize(src, 16 * MiB));
  ASSERT_TRUE(snap(src, "s4"));

  ASSERT_TRUE(backup(src + "@s1", "", src + "/1"));
  for (const std::string s : {"2", "3", "4"})
    ASSERT_TRUE(backup(src + "@s" + s, src + "/" + std::to_string(std::stoi(s) - 1), src + "/" + s, 16, nullptr, true))
        << logs_.dump();
  Piece_Layout grown;
  ASSERT_TRUE(layout(src + "/2", grown));
  EXPECT_EQ(8 * MiB, grown.identity.base_image_size);
  EXPECT_EQ(20 * MiB + 4096, grown.identity.image_size);
  for (const std::string s : {"2", "3", "4"}) {
    SCOPED_TRACE("s" + s);
    Chain_Totals totals;
    ASSERT_TRUE(restore(src + "-r" + s, {src + "/" + s}, true, &totals)) << logs_.dump();
    EXPECT_EQ(export_sum(src + "@s" + s), export_sum(src + "-r" + s));
    EXPECT_EQ(std::stoul(s), totals.pieces);
  }
  // Over an existing, larger image full of other data: shrunk, every byte replaced.
  ASSERT_TRUE(create(src + "-big", 32 * MiB));
  write(src + "-big", 0, 32 * MiB, 't');
  ASSERT_TRUE(restore(src + "-big", {src + "/1"}, false)) << logs_.dump();
  EXPECT_EQ(export_sum(src + "@s1"), export_sum(src + "-big"));
}

// A thin image: the object map names the few objects written, and only what librbd
// reports inside them is read (the written part of a new object, the changed chunks of an
// old one); without fast-diff the exact scan finds the same.
TEST_F(Backup_Source, thin_images_cost_what_they_hold) {
  const std::string src = au_test::unique_ceph_name("bs-thin");
  const uint64_t size = 1024 * MiB, object = 4 * MiB;
  ASSERT_TRUE(create(src, size));
  std::mt19937_64 rng(7);
  for (int i = 0; i < 16; ++i) write(src, rng() % (size - 4096), 4096, 'r');
  ASSERT_TRUE(snap(src, "s1"));
  for (int i = 0; i < 4; ++i) write(src, rng() % (size - 4096), 4096, 't');
  ASSERT_TRUE(snap(src, "s2"));

  ceph::Backup_Totals full, incr;
  ASSERT_TRUE(backup(src + "@s1", "", src + "/full", 16, &full));
  ASSERT_TRUE(backup(src + "@s2", src + "/full", src + "/incr", 16, &incr, true));
  EXPECT_TRUE(full.by_object_map && incr.by_object_map);
  EXPECT_LE(16 * 4096u, full.bytes_read);
  EXPECT_GE(16 * 2 * object, full.bytes_read) << "at most the two objects of each write";
  EXPECT_LE(4 * 4096u, incr.bytes_read);
  EXPECT_GE(4 * 2 * object, incr.bytes_read);
  ASSERT_TRUE(restore(src + "-r", {src + "/incr"}, true)) << logs_.dump();
  EXPECT_EQ(export_sum(src + "@s2"), export_sum(src + "-r"));
  EXPECT_GE(allocated(src + "@s2"), allocated(src + "-r")) << "a restore keeps the image thin";

  ASSERT_TRUE(rbd("feature disable " + POOL + "/" + src + " fast-diff"));
  ceph::Backup_Totals exact;
  ASSERT_TRUE(backup(src + "@s2", "s1", src + "/exact", 16, &exact));
  EXPECT_FALSE(exact.by_object_map);
  EXPECT_EQ(incr.bytes_read, exact.bytes_read);
}

// Every piece names its cluster, pool, image and snapshot; an incremental its base, and
// the base piece when it was given one. A base of another image, one not older, or one
// whose snapshot was made again under its name is refused.
TEST_F(Backup_Source, pieces_name_their_source_and_base) {
  const std::string src = au_test::unique_ceph_name("bs-id"), other = src + "-other";
  ASSERT_TRUE(create(src, 8 * MiB) && create(other, 8 * MiB));
  for (int i = 1; i <= 3; ++i) {
    write(src, i * MiB, 4096, 'r');
    ASSERT_TRUE(snap(src, "s" + std::to_string(i)));
  }
  ASSERT_TRUE(snap(other, "s1"));
  const uint64_t started = uint64_t(std::time(nullptr));
  ASSERT_TRUE(backup(src + "@s1", "", "id/1", 12));
  ASSERT_TRUE(backup(src + "@s2", "s1", "id/2"));
  ASSERT_TRUE(backup(src + "@s3", "id/2", "id/3", 16, nullptr, true));
  ASSERT_TRUE(backup(other + "@s1", "", "id/other"));

  std::string fsid, info, snaps;
  ASSERT_TRUE(au_test::run_ceph_cli("ceph fsid", &fsid));
  ASSERT_TRUE(au_test::run_ceph_cli("rbd info --format json " + POOL + "/" + src, &info));
  ASSERT_TRUE(au_test::run_ceph_cli("rbd snap ls --format json " + POOL + "/" + src, &snaps));
  json_spirit::Value image, list;
  ASSERT_TRUE(json_spirit::read(info, image) && json_spirit::read(snaps, list));
  std::map<std::string, std::string> snap_ids;
  for (const auto& s : list.get_array())
    snap_ids[s.get_obj().at("name").get_str()] = std::to_string(s.get_obj().at("id").get_uint64());

  Piece_Layout l1, l2, l3;
  ASSERT_TRUE(layout("id/1", l1) && layout("id/2", l2) && layout("id/3", l3));
  const piece::Identity& a = l1.identity;
  EXPECT_EQ(2u, l1.header.version);
  EXPECT_EQ("ceph", a.source_kind);
  EXPECT_EQ(fsid.substr(0, fsid.find_last_not_of("\n") + 1), a.cluster);
  EXPECT_EQ(POOL, a.pool);
  EXPECT_EQ(src, a.image_name);
  EXPECT_EQ(image.get_obj().at("id").get_str(), a.image_id);
  EXPECT_EQ(snap_ids["s1"], a.snapshot_id);
  EXPECT_EQ("s1", a.snapshot_name);
  EXPECT_EQ(8 * MiB, a.image_size);
  EXPECT_EQ(4096u, a.chunk_size);
  EXPECT_LE(started, a.created);
  EXPECT_TRUE(a.is_full());
  const piece::Identity& b = l2.identity;
  EXPECT_EQ(snap_ids["s2"], b.snapshot_id);
  EXPECT_EQ(snap_ids["s1"], b.base_snapshot_id);
  EXPECT_EQ("s1", b.base_snapshot_name);
  EXPECT_EQ(8 * MiB, b.base_image_size);
  EXPECT_TRUE(piece::is_zero(b.base_piece_id) && b.base_piece_name.empty());
  EXPECT_FALSE(b.is_full());
  const piece::Identity& c = l3.identity;
  EXPECT_EQ(b.piece_id, c.base_piece_id);
  EXPECT_EQ("id/2", c.base_piece_name);
  EXPECT_EQ("s2", c.base_snapshot_name);
  EXPECT_TRUE(a.same_source(c));

  const std::string uri = "ceph://" + POOL + "/" + src;
  logs_.clear();
  EXPECT_FALSE(backup(src + "@s3", "id/other", "id/x", 16, nullptr, true));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to back up '" + uri + "@s3' after piece 'id/other': that piece "
                                  "holds no snapshot of this image.\n")) << logs_.dump();
  EXPECT_FALSE(backup(src + "@s2", "id/3", "id/x", 16, nullptr, true));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to back up '" + uri + "@s2': its base snapshot 's3' is not older.\n"));
  EXPECT_FALSE(backup(src + "@s3", "s0", "id/x"));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to back up '" + uri + "@s3': it has no base snapshot 's0'.\n"));
  ASSERT_TRUE(rbd("snap rm --no-progress " + POOL + "/" + src + "@s1") && snap(src, "s1"));
  EXPECT_FALSE(backup(src + "@s3", "id/1", "id/x", 16, nullptr, true));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to back up '" + uri + "@s3' after piece 'id/1': its snapshot " +
                                      snap_ids["s1"] + " ('s1') is gone from the image.\n")) << logs_.dump();
  std::vector<std::string> names;
  ASSERT_TRUE(pool_io_.list("id", names));
  EXPECT_EQ(4u, names.size()) << "no refused piece is left behind";
}

}  // namespace
