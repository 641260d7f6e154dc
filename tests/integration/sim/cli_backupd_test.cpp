// The agentutil binary's backupd family against the backup server simulator: what a
// person at a shell sees, the exit status, and that the access key travels only in
// its header.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "framework/base/temp_dir_test.h"
#include "framework/json/reader.h"
#include "sim/backupd/backupd_sim.h"
#include "sim/backupd/jsonrpc_channel.h"
#include "tests/integration/sim/agentutil_runner.h"

namespace {

using au_sim::Backupd_Sim;
using json_spirit::Value;

const char* const ACCESS_KEY = "k3y-only-in-the-header";

using au_test::line_count;
using au_test::Run_Result;

// A loopback port nobody listens on (bound, then released).
unsigned short closed_port() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  ::close(fd);
  return ntohs(addr.sin_port);
}

class Agentutil_Backupd : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE("", au_test::agentutil_path()) << "AGENTUTIL_BUILD_DIR is not set";
    key_file_ = dir_.write_file("key", std::string(ACCESS_KEY) + "\n");
    channel_.add_agent("agent-1", agent_);
    channel_.attach(sim_);
    sim_.require_access_key(ACCESS_KEY);
    ASSERT_TRUE(sim_.start());
    server_ = "127.0.0.1:" + std::to_string(sim_.port());
  }
  void TearDown() override { sim_.stop(); }

  Run_Result run(const std::vector<std::string>& args) { return au_test::run_agentutil(args, dir_.path()); }

  // `forward` with the server, key and channel in place.
  Run_Result forward(std::vector<std::string> extra, const std::string& server = "") {
    std::vector<std::string> args{"backupd", "forward", "--server", server.empty() ? server_ : server,
                                  "--access-key-file", key_file_, "--channel", "agent-1"};
    args.insert(args.end(), extra.begin(), extra.end());
    return run(args);
  }

  au_test::Temp_Dir dir_;
  std::string key_file_, server_;
  std::shared_ptr<au_sim::Fake_Agent> agent_ = std::make_shared<au_sim::Fake_Agent>();
  au_sim::JSON_RPC_Channel channel_;
  Backupd_Sim sim_;
};

TEST_F(Agentutil_Backupd, ForwardPrintsTheResultAndFailsInOneLine) {
  std::vector<Run_Result> runs;
  runs.push_back(forward({"--json", "mount",
                          R"({"action":"mount","remote_url":"http://s3/b","mnt":"/mnt/b","user":"u",)"
                          R"("retry_timeout":5,"limit_rate":0})"}));
  const Run_Result ok = runs.back();
  ASSERT_EQ(0, ok.status) << ok.err;
  Value printed;
  ASSERT_TRUE(json_spirit::read(ok.out, printed)) << ok.out;
  const auto& result = printed.get_obj().at("result").get_obj();
  EXPECT_TRUE(result.at("result").get_bool());
  EXPECT_FALSE(result.at("has_mounted").get_bool());
  EXPECT_EQ(1u, agent_->mounts().count("/mnt/b"));
  const auto sent = sim_.requests_to(Backupd_Sim::JSONRPC_PATH);
  ASSERT_EQ(1u, sent.size());
  EXPECT_EQ(ACCESS_KEY, sent[0].header(Backupd_Sim::ACCESS_KEY_HEADER));

  // A result of another type than the one asked for is a failure too.
  runs.push_back(forward({"umount", R"({"action":"umount","mnt":"/mnt/b"})", "--expect", "array"}));
  runs.push_back(forward({"probe", R"({"action":"no-such-action"})"}));
  runs.push_back(forward({"probe", R"({"action":"mount",)"}));
  runs.push_back(forward({"probe", "{}"}, "127.0.0.1:" + std::to_string(closed_port())));
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
  for (const auto& r : runs) {
    EXPECT_EQ(std::string::npos, r.out.find(ACCESS_KEY));
    EXPECT_EQ(std::string::npos, r.err.find(ACCESS_KEY)) << r.err;
  }
}

TEST_F(Agentutil_Backupd, CatalogsListAllOrTheFirst) {
  const std::string path = "/d2/r/catalogs/job-7";
  sim_.set_catalog_rows(path, json_spirit::Array{json_spirit::Object{{"name", "c1"}},
                                                  json_spirit::Object{{"name", "c2"}}});
  const std::vector<std::string> common{"--server", server_, "--access-key-file", key_file_};
  auto catalogs = [&](std::vector<std::string> extra) {
    std::vector<std::string> args{"backupd", "catalogs"};
    args.insert(args.end(), common.begin(), common.end());
    args.insert(args.end(), extra.begin(), extra.end());
    return run(args);
  };

  const Run_Result all = catalogs({path});
  ASSERT_EQ(0, all.status) << all.err;
  EXPECT_EQ("{\"name\":\"c1\"}\n{\"name\":\"c2\"}\n2 catalog(s)\n", all.out);

  const Run_Result first = catalogs({path, "--first", "--json"});
  ASSERT_EQ(0, first.status) << first.err;
  Value row;
  ASSERT_TRUE(json_spirit::read(first.out, row)) << first.out;
  EXPECT_EQ("c1", row.get_obj().at("name").get_str());

  const Run_Result missing = catalogs({"/d2/r/catalogs/none"});
  EXPECT_NE(0, missing.status);
  EXPECT_EQ(1u, line_count(missing.err)) << missing.err;

  // Without the key the server refuses, and the tool says so.
  const Run_Result refused = run({"backupd", "catalogs", "--server", server_, path});
  EXPECT_NE(0, refused.status);
  EXPECT_EQ(1u, line_count(refused.err)) << refused.err;
}

}  // namespace
