// The agentutil binary's oceanstor family against the array simulator over HTTPS: an
// incremental LUN backup as a person runs it, and failures in one line that never
// show the password.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "sim/common/self_signed_certificate.h"
#include "sim/oceanstor/oceanstor_sim.h"
#include "tests/support/agentutil_runner.h"
#include "tests/support/json_text.h"

namespace {

using au_test::parse_json;
using au_test::Run_Result;

constexpr uint64_t GiB = 1ULL << 30;
const std::string PASSWORD = "Admin@storage1";

class Agentutil_OceanStor : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE("", au_test::agentutil_path()) << "AGENTUTIL_BUILD_DIR is not set";
    ASSERT_TRUE(cert_.ok());
    sim_ = std::make_unique<au_sim::OceanStor_Sim>(cert_.cert_file(), cert_.key_file());
    sim_->add_lun("1", "vm_lun", GiB);  // 64 KiB chunks 0 and 5 before the snapshot, 7 after
    sim_->write_chunk("1", 0, "boot");
    sim_->write_chunk("1", 5, "data");
    sim_->add_snapshot("2", "vm_snap", "1");
    sim_->write_chunk("1", 7, "new");
    sim_->add_lun_group("3");
    sim_->add_host("4", "backup_host", "3");
    sim_->add_host_link("4", "10", "1", "27");
    ASSERT_TRUE(sim_->start());
    // Written by an editor that ends lines in CR LF: both go.
    password_file_ = dir_.write_file("password", PASSWORD + "\r\n");
  }

  // `agentutil oceanstor` aimed at the simulator, then `args`.
  Run_Result array(const std::vector<std::string>& args, const std::string& password_file = "",
                   const std::string& server = "") {
    std::vector<std::string> all{"oceanstor",  "--server", server.empty() ? address() : server,
                                 "--ssl",      "--ca-file", cert_.cert_file(),
                                 "--user",     "admin",     "--password-file",
                                 password_file.empty() ? password_file_ : password_file};
    if (password_file == "-") all.resize(all.size() - 2);  // none: asked on a terminal
    all.insert(all.end(), args.begin(), args.end());
    return au_test::run_agentutil(all, dir_.path());
  }

  std::string address() const { return "127.0.0.1:" + std::to_string(sim_->port()); }

  au_test::Temp_Dir dir_;
  au_sim::Self_Signed_Certificate cert_;
  std::unique_ptr<au_sim::OceanStor_Sim> sim_;
  std::string password_file_;
};

TEST_F(Agentutil_OceanStor, an_incremental_backup_from_attach_to_detach) {
  const Run_Result login = array({"--json", "login"});
  ASSERT_EQ(0, login.status) << login.err;
  EXPECT_EQ(parse_json(R"({"device_id":")" + sim_->device_id() + R"("})"), parse_json(login.out));

  const Run_Result attach = array({"--json", "attach", "--snapshot", "2", "--group", "3"});
  ASSERT_EQ(0, attach.status) << attach.err;
  EXPECT_EQ(parse_json(R"({"snapshot":"2","group":"3","attached":true})"), parse_json(attach.out));
  EXPECT_TRUE(sim_->in_lun_group("3", "2"));

  const Run_Result hosts = array({"--json", "hosts", "--snapshot", "2"});
  ASSERT_EQ(0, hosts.status) << hosts.err;
  EXPECT_EQ(parse_json(R"([{"id":"4","name":"backup_host","ip":""}])"), parse_json(hosts.out));

  // Byte extents beside the chunk size: the array counts 64 KiB chunks.
  const struct {
    std::vector<std::string> base;
    const char* expected;
  } changes[] = {
      {{}, R"({"chunk_size":65536,"changed_bytes":196608,"total_bytes":1073741824,"extents":[
               {"offset":0,"length":65536},{"offset":327680,"length":65536},{"offset":458752,"length":65536}]})"},
      {{"--base", "2"}, R"({"chunk_size":65536,"changed_bytes":65536,"total_bytes":1073741824,"extents":[
               {"offset":458752,"length":65536}]})"},
  };
  for (const auto& c : changes) {
    std::vector<std::string> args{"--json", "changed-blocks", "--lun", "1", "--size", std::to_string(GiB)};
    args.insert(args.end(), c.base.begin(), c.base.end());
    const Run_Result changed = array(args);
    ASSERT_EQ(0, changed.status) << changed.err;
    EXPECT_EQ(parse_json(c.expected), parse_json(changed.out)) << changed.out;
  }

  const Run_Result detach = array({"--json", "detach", "--snapshot", "2", "--group", "3"});
  ASSERT_EQ(0, detach.status) << detach.err;
  EXPECT_EQ(parse_json(R"({"snapshot":"2","group":"3","detached":true})"), parse_json(detach.out));
  EXPECT_FALSE(sim_->in_lun_group("3", "2"));
}

// What a person reads: headings, units, "-" for what the array left empty, nouns that
// agree with their count, no blanks at line ends.
TEST_F(Agentutil_OceanStor, text_output_is_labelled) {
  const struct {
    std::vector<std::string> args;
    std::vector<std::string> shown;
  } runs[] = {
      {{"login"}, {"device id " + sim_->device_id()}},
      {{"lun", "1"}, {"name", "vm_lun", "exposed to a host  no"}},
      {{"attach", "--lun", "1", "--group", "3"}, {"attached LUN 1 to lun group 3\n"}},
      {{"hosts", "--lun", "1"}, {"LUN 1 is mapped to 1 host:\n", "HOST  NAME         IP ADDRESS\n4     backup_host  -\n"}},
      {{"fc-links", "4"}, {"1 healthy FC link:", "LINK  HOST PORT WWN", "\n10  "}},
      {{"changed-blocks", "--lun", "1", "--size", std::to_string(GiB), "--base", "2"},
       {"1 extent to read", "64 KiB of 1 GiB", "chunk size 64 KiB", "OFFSET  LENGTH\n458752  65536\n"}},
  };
  for (const auto& r : runs) {
    const Run_Result run = array(r.args);
    ASSERT_EQ(0, run.status) << r.args[0] << ": " << run.err;
    EXPECT_FALSE(au_test::has_trailing_blanks(run.out)) << run.out;
    for (const auto& text : r.shown) EXPECT_NE(std::string::npos, run.out.find(text)) << text << " in\n" << run.out;
  }
}

TEST_F(Agentutil_OceanStor, failures_end_in_one_line_and_never_show_the_password) {
  const struct {
    std::vector<std::string> args;
    std::string password_file;
    std::string server;
    const char* said;
  } runs[] = {
      {{"login"}, dir_.write_file("wrong", "not-" + PASSWORD + "\n"), "", "cannot log in"},
      {{"login"}, dir_.write_file("empty", "\r\n"), "", "password is empty"},
      {{"login"}, dir_ / "missing", "", "cannot read the OceanStor password"},
      {{"login"}, "-", "", "no terminal"},
      {{"login"}, "", "127.0.0.1:0", "--server"},
      {{"lun", "99"}, "", "", "cannot read LUN '99'"},
      {{"attach", "--lun", "1", "--snapshot", "2", "--group", "3"}, "", "", "exactly one of"},
      {{"--verbose", "snapshot", "99"}, "", "", "cannot read snapshot '99'"},
  };
  for (const auto& r : runs) {
    const Run_Result run = array(r.args, r.password_file, r.server);
    EXPECT_EQ(1, run.status) << r.said;
    EXPECT_EQ("", run.out) << r.said;
    const std::string last_line = run.err.substr(run.err.rfind('\n', run.err.size() - 2) + 1);
    EXPECT_EQ(0u, last_line.find("agentutil: ")) << run.err;
    EXPECT_NE(std::string::npos, last_line.find(r.said)) << run.err;
    if (r.args[0] != "--verbose") {
      EXPECT_EQ(1u, au_test::line_count(run.err)) << run.err;
    }
    EXPECT_EQ(std::string::npos, run.err.find(PASSWORD)) << run.err;
  }
}

}  // namespace
