// The agentutil binary's ceph family on the sandbox cluster, checked against what the
// rbd tool reports for the same image; and a cluster that cannot be reached, which
// must end the tool with status 1 and one line, never a signal.
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/integration/ceph/pool_fixture.h"
#include "tests/support/agentutil_runner.h"
#include "tests/support/http_test_server.h"
#include "tests/support/json_text.h"

namespace {

using au_test::parse_json;
using au_test::Run_Result;
using ceph_test::MiB;
using ceph_test::POOL;

class Agentutil_Ceph : public ceph_test::Pool_Fixture {
 protected:
  void SetUp() override {
    ASSERT_NE("", au_test::agentutil_path()) << "AGENTUTIL_BUILD_DIR is not set";
    Pool_Fixture::SetUp();
  }

  Run_Result ceph(std::vector<std::string> args) {
    args.insert(args.begin(), {"ceph", "--conf", au_test::ceph_conf_path()});
    return au_test::run_agentutil(args, dir_.path());
  }

  // Writes `length` bytes of `fill` at each offset of the image.
  void write(const std::string& name, const std::vector<uint64_t>& offsets, uint64_t length, char fill) {
    ceph::Ceph_Image image;
    ASSERT_TRUE(client_->open_image(POOL, name, image, false));
    const std::string data(length, fill);
    for (uint64_t offset : offsets) ASSERT_EQ(int(length), image.write(offset, length, data.data(), 0));
  }

  au_test::Temp_Dir dir_;
};

json_spirit::Value extents_json(const std::vector<ceph_test::Extent>& extents) {
  json_spirit::Array rows;
  for (const auto& [offset, length, exists] : extents)
    rows.emplace_back(json_spirit::Object{{"offset", offset}, {"length", length}, {"exists", exists}});
  return rows;
}

json_spirit::Value blocks_json(const Blocks& blocks) {
  json_spirit::Array rows;
  for (const auto& b : blocks) rows.emplace_back(json_spirit::Object{{"offset", b.offset}, {"length", b.length}});
  return rows;
}

// Every extent librbd reports reaches the tool: the diff goes on past the first one.
TEST_F(Agentutil_Ceph, diff_and_changed_blocks_report_every_extent_rbd_reports) {
  const std::string name = au_test::unique_ceph_name("cli-diff");
  ASSERT_TRUE(make_image(name, 64));
  write(name, {0, 9 * MiB + 100, 40 * MiB}, 8192, 'a');
  ASSERT_TRUE(ceph_test::rbd("snap create --no-progress " + POOL + "/" + name + "@s1"));
  write(name, {20 * MiB, 41 * MiB}, 4096, 'b');
  ASSERT_TRUE(ceph_test::rbd("snap create --no-progress " + POOL + "/" + name + "@s2"));
  const std::string image = "ceph://" + POOL + "/" + name;

  const struct {
    std::vector<std::string> args;
    std::string rbd_args;
  } diffs[] = {
      {{image + "@s1"}, POOL + "/" + name + "@s1"},
      {{image + "@s2", "--from", "s1"}, "--from-snap s1 " + POOL + "/" + name + "@s2"},
  };
  for (const auto& d : diffs) {
    const std::vector<ceph_test::Extent> expected = ceph_test::rbd_diff(d.rbd_args);
    ASSERT_LT(1u, expected.size()) << d.rbd_args;
    std::vector<std::string> args{"--json", "diff"};
    args.insert(args.end(), d.args.begin(), d.args.end());
    const Run_Result run = ceph(args);
    ASSERT_EQ(0, run.status) << d.rbd_args << ": " << run.err;
    EXPECT_EQ(extents_json(expected), parse_json(run.out).get_obj().at("extents")) << run.out;

    args.erase(args.begin());  // the text form: a count that agrees with the rows under it
    const Run_Result text = ceph(args);
    ASSERT_EQ(0, text.status) << text.err;
    EXPECT_EQ(0u, text.out.find(std::to_string(expected.size()) + " extents: ")) << text.out;
    EXPECT_EQ(expected.size() + 2, au_test::line_count(text.out)) << text.out;
    EXPECT_FALSE(au_test::has_trailing_blanks(text.out)) << text.out;
  }

  // The backup's view: byte extents on the chunk grid, the chunk size beside them.
  const Run_Result changed = ceph({"--json", "changed-blocks", image + "@s2", "--from", "s1", "--chunk-power", "16"});
  ASSERT_EQ(0, changed.status) << changed.err;
  const json_spirit::Value parsed = parse_json(changed.out);
  const auto& report = parsed.get_obj();
  EXPECT_EQ(blocks_json(ceph_test::rbd_diff("--from-snap s1 " + POOL + "/" + name + "@s2", 65536, true)),
            report.at("extents"));
  EXPECT_EQ(json_spirit::Value(65536), report.at("chunk_size"));
  EXPECT_EQ(json_spirit::Value(64 * MiB), report.at("total_bytes"));
}

TEST_F(Agentutil_Ceph, listings_have_headings_and_read_returns_the_snapshot_bytes) {
  const std::string name = au_test::unique_ceph_name("cli-list");
  ASSERT_TRUE(make_image(name, 8));
  write(name, {MiB}, 4096, 'c');
  ASSERT_TRUE(ceph_test::rbd("snap create --no-progress " + POOL + "/" + name + "@s1"));
  const std::string image = "ceph://" + POOL + "/" + name;

  const struct {
    std::vector<std::string> args;
    std::string shown;
  } listings[] = {
      {{"pools"}, "POOL\n"},
      {{"images", POOL}, "\n" + name + "  "},
      {{"snaps", image}, "SNAPSHOT  ID"},
      {{"snaps", image}, "  8 MiB\n"},
  };
  for (const auto& l : listings) {
    const Run_Result run = ceph(l.args);
    ASSERT_EQ(0, run.status) << run.err;
    EXPECT_NE(std::string::npos, run.out.find(l.shown)) << l.shown << " in\n" << run.out;
    EXPECT_FALSE(au_test::has_trailing_blanks(run.out)) << run.out;
  }

  const std::string out = dir_ / "extent.bin";
  const Run_Result read = ceph({"read", image + "@s1", "--offset", std::to_string(MiB - 10), "--length", "20", "-o", out});
  ASSERT_EQ(0, read.status) << read.err;
  EXPECT_EQ(std::string(10, '\0') + std::string(10, 'c'), au_test::read_whole(out));
  EXPECT_EQ("wrote 20 bytes from offset " + std::to_string(MiB - 10) + " to " + out + "\n", read.out);
}

// A full and a linked incremental backup into a directory pool, restored by the newest
// piece into an image the tool makes: the same bytes as the source snapshot. The same
// pieces given in the wrong order, or a piece missing from the pool, end in one line.
TEST_F(Agentutil_Ceph, backup_and_restore_give_the_snapshot_back) {
  const std::string name = au_test::unique_ceph_name("cli-bk");
  ASSERT_TRUE(make_image(name, 12));
  write(name, {0, 5 * MiB}, MiB, 'd');
  ASSERT_TRUE(ceph_test::rbd("snap create --no-progress " + POOL + "/" + name + "@s1"));
  write(name, {5 * MiB + 4096, 11 * MiB}, 8192, 'e');
  ASSERT_TRUE(ceph_test::rbd("snap create --no-progress " + POOL + "/" + name + "@s2"));
  const std::string image = "ceph://" + POOL + "/" + name, pool = "file://" + dir_.path();

  const Run_Result full = ceph({"--json", "backup", image + "@s1", "--pool", pool, "--piece", "p1"});
  ASSERT_EQ(0, full.status) << full.err;
  EXPECT_EQ(json_spirit::Value(12 * MiB), parse_json(full.out).get_obj().at("image_size")) << full.out;
  const Run_Result incr = ceph({"backup", image + "@s2", "--base", "p1", "--pool", pool, "--piece", "p2"});
  ASSERT_EQ(0, incr.status) << incr.err;
  EXPECT_NE(std::string::npos, incr.out.find("2 extents on a 64 KiB grid")) << incr.out;
  EXPECT_FALSE(au_test::has_trailing_blanks(incr.out)) << incr.out;

  cleanup_.image(name + "-r");
  const Run_Result restore =
      ceph({"--json", "restore", image + "-r", "--pool", pool, "--piece", "p2"});
  ASSERT_EQ(0, restore.status) << restore.err;
  EXPECT_EQ(json_spirit::Value(2), parse_json(restore.out).get_obj().at("pieces")) << restore.out;
  std::string source, restored;
  ASSERT_TRUE(au_test::run_ceph_cli("rbd export --no-progress " + POOL + "/" + name + "@s2 - | md5sum", &source));
  ASSERT_TRUE(au_test::run_ceph_cli("rbd export --no-progress " + POOL + "/" + name + "-r - | md5sum", &restored));
  EXPECT_EQ(source, restored);

  for (const std::vector<std::string>& pieces : {std::vector<std::string>{"p2", "p1"}, {"p3"}}) {
    std::vector<std::string> args{"restore", image + "-r", "--pool", pool};
    for (const std::string& p : pieces) args.insert(args.end(), {"--piece", p});
    const Run_Result refused = ceph(args);
    EXPECT_EQ(1, refused.status) << pieces.front();
    EXPECT_EQ(1u, au_test::line_count(refused.err)) << refused.err;
  }
}

// Ceph prints to stderr while it fails to connect; a program that binds the Ceph
// libraries wrongly dies of that (SIGSEGV), and the tool keeps those lines off the
// screen unless --verbose.
TEST(Agentutil_Ceph_Unreachable, exits_1_with_its_own_line_not_a_signal) {
  ASSERT_NE("", au_test::agentutil_path()) << "AGENTUTIL_BUILD_DIR is not set";
  au_test::Temp_Dir dir;
  const std::string closed = "mon_host=127.0.0.1:" + std::to_string(au_test::unused_local_port());
  const struct {
    std::vector<std::string> args;
    const char* said;
  } runs[] = {
      {{"ceph", "pools"}, "no Ceph configuration found"},
      {{"ceph", "pools", "--config", closed, "--config", "client_mount_timeout=3"}, "cannot connect"},
      {{"ceph", "--config", "mon_host", "pools"}, "--config expects KEY=VALUE"},
  };
  for (const auto& r : runs) {
    const Run_Result run = au_test::run_agentutil(r.args, dir.path());
    EXPECT_EQ(0, run.signal) << r.said;
    EXPECT_EQ(1, run.status) << r.said << ": " << run.err;
    EXPECT_EQ("", run.out);
    EXPECT_EQ(1u, au_test::line_count(run.err)) << run.err;
    EXPECT_EQ(0u, run.err.find(std::string("agentutil: ") + r.said)) << run.err;
  }
}

}  // namespace
