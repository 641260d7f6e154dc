// The agentutil binary's backupd family against the backup server simulator: what a
// person at a shell sees, the exit status, and that the access key travels only in
// its header.
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/support/agentutil_runner.h"
#include "tests/integration/sim/backupd_sim_fixture.h"

namespace {

using au_sim::Backupd_Sim;
using au_test::line_count;
using au_test::Run_Result;
using json_spirit::Value;

const char* const ACCESS_KEY = "k3y-only-in-the-header";

class Agentutil_Backupd : public Channel_Sim_Test {
 protected:
  void SetUp() override {
    ASSERT_NE("", au_test::agentutil_path()) << "AGENTUTIL_BUILD_DIR is not set";
    Channel_Sim_Test::SetUp();
    key_file_ = dir_.write_file("key", std::string(ACCESS_KEY) + "\n");
    sim_.require_access_key(ACCESS_KEY);
    server_ = "127.0.0.1:" + std::to_string(sim_.port());
  }

  // A backupd sub-command with `args`; the server and key file come first unless
  // `keyed` is false.
  Run_Result backupd(const std::string& command, std::vector<std::string> args, bool keyed = true,
                     const std::string& server = "") {
    std::vector<std::string> all{"backupd", command, "--server", server.empty() ? server_ : server};
    if (keyed) all.insert(all.end(), {"--access-key-file", key_file_});
    all.insert(all.end(), args.begin(), args.end());
    return au_test::run_agentutil(all, dir_.path());
  }

  Run_Result forward(std::vector<std::string> args, const std::string& server = "") {
    args.insert(args.begin(), {"--channel", CHANNEL});
    return backupd("forward", args, true, server);
  }

  au_test::Temp_Dir dir_;
  std::string key_file_, server_;
};

TEST_F(Agentutil_Backupd, forward_prints_the_result_and_fails_in_one_line) {
  std::vector<Run_Result> runs{forward({"--json", "mount",
                                        R"({"action":"mount","remote_url":"http://s3/b","mnt":"/mnt/b","user":"u",)"
                                        R"("retry_timeout":5,"limit_rate":0})"})};
  ASSERT_EQ(0, runs[0].status) << runs[0].err;
  Value printed;
  ASSERT_TRUE(json_spirit::read(runs[0].out, printed)) << runs[0].out;
  EXPECT_EQ(parse(R"({"result":true,"has_mounted":false})"), printed.get_obj().at("result"));
  EXPECT_EQ(1u, agent_->mounts().count("/mnt/b"));
  EXPECT_EQ(ACCESS_KEY, sim_.requests_to(Backupd_Sim::JSONRPC_PATH).at(0).header(Backupd_Sim::ACCESS_KEY_HEADER));

  // A result of another type than the one asked for is a failure too.
  runs.push_back(forward({"umount", R"({"action":"umount","mnt":"/mnt/b"})", "--expect", "array"}));
  runs.push_back(forward({"probe", R"({"action":"no-such-action"})"}));
  runs.push_back(forward({"probe", R"({"action":"mount",)"}));
  runs.push_back(forward({"probe", "{}"}, "127.0.0.1:" + std::to_string(au_test::unused_local_port())));
  runs.push_back(forward({"probe", "{}"}, "127.0.0.1:99999"));
  for (std::size_t i = 1; i < runs.size(); ++i) {
    EXPECT_NE(0, runs[i].status) << i;
    EXPECT_EQ("", runs[i].out) << i;
    EXPECT_EQ(1u, line_count(runs[i].err)) << i << ": " << runs[i].err;
    EXPECT_EQ(0u, runs[i].err.find("agentutil: ")) << i << ": " << runs[i].err;
  }
  EXPECT_NE(std::string::npos, runs[2].err.find("no-such-action")) << runs[2].err;
  EXPECT_NE(std::string::npos, runs[3].err.find("PARAMS_JSON")) << runs[3].err;
  EXPECT_NE(std::string::npos, runs[5].err.find("--server")) << runs[5].err;
  // The bad params and the bad address never reached the server; the others did.
  EXPECT_EQ(3u, sim_.requests_to(Backupd_Sim::JSONRPC_PATH).size());
  // Every library log line on the screen still leaves the key out.
  runs.push_back(forward({"--verbose", "probe", R"({"action":"no-such-action"})"}));
  EXPECT_NE(0, runs.back().status);
  for (const auto& r : runs) EXPECT_EQ(std::string::npos, (r.out + r.err).find(ACCESS_KEY)) << r.err;
}

TEST_F(Agentutil_Backupd, catalogs_list_all_or_the_first) {
  const std::string path = "/d2/r/catalogs/job-7";
  sim_.set_catalog_rows(path, json_spirit::Array{json_spirit::Object{{"name", "c1"}},
                                                  json_spirit::Object{{"name", "c2"}}});
  const Run_Result all = backupd("catalogs", {path});
  ASSERT_EQ(0, all.status) << all.err;
  EXPECT_EQ("2 catalogs at " + path + ":\n{\"name\":\"c1\"}\n{\"name\":\"c2\"}\n", all.out);

  const Run_Result first = backupd("catalogs", {path, "--first", "--json"});
  ASSERT_EQ(0, first.status) << first.err;
  EXPECT_EQ(parse(R"({"name":"c1"})"), parse(first.out));

  // A missing listing, the server refusing a request without the key; refused before
  // anything is sent: a key file holding only a line end, a key file others can read,
  // plain HTTP to a host off this machine (192.0.2.1, never reached).
  const std::size_t asked = sim_.requests().size();
  const auto with_key = [&](const std::string& file, const std::string& server) {
    return au_test::run_agentutil({"backupd", "--access-key-file", file, "--server", server, "catalogs", path},
                                  dir_.path());
  };
  const Run_Result blank_key = with_key(dir_.write_file("blank", "\r\n"), server_);
  EXPECT_NE(std::string::npos, blank_key.err.find("access key is empty")) << blank_key.err;
  const std::string open_file = dir_.write_file("open", "k3y\n");
  ::chmod(open_file.c_str(), 0644);
  const Run_Result open_key = with_key(open_file, server_);
  EXPECT_NE(std::string::npos, open_key.err.find("is open to group or others (mode 0644); chmod 600 it"))
      << open_key.err;
  const Run_Result remote = with_key(dir_.write_file("key", "k3y\n"), "192.0.2.1:8080");
  EXPECT_NE(std::string::npos, remote.err.find("refusing plain HTTP to 192.0.2.1")) << remote.err;
  EXPECT_EQ(asked, sim_.requests().size());
  for (const Run_Result& failed : {backupd("catalogs", {"/d2/r/catalogs/none"}), backupd("catalogs", {path}, false),
                                   blank_key, open_key, remote}) {
    EXPECT_NE(0, failed.status);
    EXPECT_EQ(1u, line_count(failed.err)) << failed.err;
  }
}

}  // namespace
