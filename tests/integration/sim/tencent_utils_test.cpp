// The mount helpers against the backup server simulator and its fake agents, and the
// clntiofs_i process list read from the real /proc.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include <ace/ACE.h>

#include "framework/base/temp_dir_test.h"
#include "framework/http/host_manager.h"
#include "framework/http/http_options.h"
#include "framework/json/reader.h"
#include "framework/jsonrpc/json_rpc_http_session.h"
#include "sim/backupd/backupd_sim.h"
#include "sim/backupd/jsonrpc_channel.h"
#include "tests/support/json_text.h"
#include "tests/support/log_capture.h"
#include "utils/agent/tencent/client_io_fs_internal.h"
#include "utils/agent/tencent/tencent_utils.h"

namespace {

using au_sim::Channel_Fault;
using json_spirit::Object;
using json_spirit::Value;

Value parse(const std::string& text) { return au_test::parse_json(text); }

class Agent_Mount_Requests : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_backupd_ = HTTP_Options::instance()->backupd();
    JSON_RPC_HTTP_Session::default_retry_interval(1);
    agent_->set_file_size("/data/a", 7);
    agent_->set_file_size("/data/b", 5);
    channel_.add_agent("agent-7", agent_);
    channel_.attach(sim_);
    ASSERT_TRUE(sim_.start());
    HTTP_Options::instance()->backupd(HTTP_Server_Address{"127.0.0.1", sim_.port(), false});
  }
  void TearDown() override {
    sim_.stop();
    HTTP_Options::instance()->backupd(saved_backupd_);
  }

  // The params of the last call the agent received.
  Value last_params() const {
    const auto calls = agent_->calls();
    return calls.empty() ? Value() : calls.back().get_obj().at("params");
  }

  bool mount(const char* mnt, bool* has_mounted, const char* compress = nullptr,
             const char* encryption = nullptr, const char* iv = nullptr) {
    return request_agent_to_mount("agent.mount", "agent-7", "http://s3.local/bucket", mnt, "backup",
                                  30, 0, compress, 9, encryption, "secret-key", iv, nullptr,
                                  has_mounted);
  }

  std::shared_ptr<au_sim::Fake_Agent> agent_ = std::make_shared<au_sim::Fake_Agent>();
  au_sim::JSON_RPC_Channel channel_;
  au_sim::Backupd_Sim sim_;
  HTTP_Server_Address saved_backupd_;
};

TEST_F(Agent_Mount_Requests, mount_sends_exactly_the_options_given) {
  au_test::Log_Capture logs;
  bool has_mounted = true;
  ASSERT_TRUE(request_agent_to_mount("agent.mount", "agent-7", "http://s3.local/bucket", "/mnt/a",
                                     "backup", 30, 1024, "zstd", 3, "aes", "secret-key", "iv-16",
                                     "http://origin/b", &has_mounted))
      << logs.dump();
  EXPECT_FALSE(has_mounted);
  EXPECT_EQ(parse(R"({"action":"mount","remote_url":"http://s3.local/bucket","mnt":"/mnt/a",
                      "user":"backup","retry_timeout":30,"limit_rate":1024,"origin_url":"http://origin/b",
                      "compress_method":"zstd","compress_level":3,"encryption_method":"aes",
                      "encryption_key":"c2VjcmV0LWtleQ==","encryption_iv":"aXYtMTY="})"),
            last_params());
  EXPECT_EQ("agent.mount", agent_->calls().back().get_obj().at("method").get_str());
  EXPECT_TRUE(logs.records().empty()) << logs.dump();

  // No compression method: no level either, whatever the caller passed.
  ASSERT_TRUE(mount("/mnt/a", &has_mounted, ""));
  EXPECT_TRUE(has_mounted) << "the agent had it mounted already";
  EXPECT_EQ(parse(R"({"action":"mount","remote_url":"http://s3.local/bucket","mnt":"/mnt/a",
                      "user":"backup","retry_timeout":30,"limit_rate":0})"),
            last_params());

  agent_->refuse_remote("http://s3.local/bucket");
  EXPECT_FALSE(mount("/mnt/b", nullptr));
}

TEST_F(Agent_Mount_Requests, keys_never_reach_a_log_line_even_when_tracing) {
  Host_Manager::instance()->access_key("host-key-123");
  Channel_Fault refused;
  refused.message = "mount refused";
  channel_.inject(refused);
  au_test::Log_Capture logs;
  ACE::debug(true);
  EXPECT_FALSE(mount("/mnt/a", nullptr, nullptr, "aes", "iv-16"));
  ACE::debug(false);
  Host_Manager::instance()->access_key("");
  EXPECT_EQ("host-key-123", sim_.requests_to("/d2/jr").at(0).header("X-Access-Key"));
  EXPECT_TRUE(logs.has(LM_ERROR, "channel.forward failed, method agent.mount, channel_id agent-7, "
                                 "code -32000: mount refused.\n"))
      << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_DEBUG, "called HTTP_Session::send(POST ")) << "headers traced";
  for (const char* secret : {"host-key-123", "secret-key", "c2VjcmV0LWtleQ==", "aXYtMTY="})
    EXPECT_EQ(std::string::npos, logs.dump().find(secret)) << secret;
}

TEST_F(Agent_Mount_Requests, bad_mount_arguments_are_refused_before_any_request) {
  au_test::Log_Capture logs;
  const char* const R = "http://s3.local/b";
  EXPECT_FALSE(request_agent_to_mount(nullptr, "agent-7", R, "/m", "u", 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_FALSE(request_agent_to_mount("m", "", R, "/m", "u", 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_FALSE(request_agent_to_mount("m", "agent-7", nullptr, "/m", "u", 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_FALSE(request_agent_to_mount("m", "agent-7", R, "", "u", 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_FALSE(request_agent_to_mount("m", "agent-7", R, "/m", nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  for (const char* what : {"method", "host", "remote_url", "mnt", "user"})
    EXPECT_TRUE(logs.has_check(std::string(what) + " is NULL or \"\"")) << what << logs.dump();
  EXPECT_FALSE(mount("/mnt/a", nullptr, nullptr, "aes", ""));
  EXPECT_TRUE(logs.has(LM_ERROR, "Invalid encryption param, need 'encryption_key' and "
                                 "'encryption_iv'.\n"))
      << logs.dump();
  EXPECT_EQ(6u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(sim_.requests().empty());
}

TEST_F(Agent_Mount_Requests, umount_reports_what_the_agent_says) {
  agent_->add_mount("/mnt/a");
  EXPECT_TRUE(request_agent_to_umount("agent.umount", "agent-7", "/mnt/a"));
  EXPECT_EQ(parse(R"({"action":"umount","mnt":"/mnt/a"})"), last_params());
  EXPECT_FALSE(request_agent_to_umount("agent.umount", "agent-7", "/mnt/a")) << "not mounted now";

  au_test::Log_Capture logs;
  EXPECT_FALSE(request_agent_to_umount("agent.umount", "agent-7", nullptr));
  EXPECT_TRUE(logs.has_check("mnt is NULL or \"\"")) << logs.dump();
  Channel_Fault odd;
  odd.kind = Channel_Fault::RESULT_VALUE;
  odd.value = Object{{"result", "yes"}};
  channel_.inject(odd);
  EXPECT_FALSE(request_agent_to_umount("agent.umount", "agent-7", "/mnt/a"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Agent 'agent-7' answered 'agent.umount' with 'result' of "
                                 "str_type, not a boolean.\n"))
      << logs.dump();
}

TEST_F(Agent_Mount_Requests, storage_size_is_the_total_or_minus_one_with_its_reason) {
  const std::vector<Value> files{"/data/a", "/data/b"};
  EXPECT_EQ(12, request_agent_to_get_storage_file_size("agent.size", "agent-7", files));
  EXPECT_EQ(parse(R"({"action":"check_storage_size","files":["/data/a","/data/b"]})"),
            last_params());

  au_test::Log_Capture logs;
  EXPECT_EQ(-1, request_agent_to_get_storage_file_size("agent.size", "agent-7", {"/data/zz"}));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to check storage size on agent 'agent-7', 'result' is "
                                 "false.\n"))
      << logs.dump();

  const char* const extract_failure =
      "Failed to extract info from JSON-RPC response when getting storage size on agent "
      "'agent-7', error: ";
  for (const char* answer : {R"({"result":true})", R"({"result":true,"total_size":-3})",
                             R"({"result":true,"total_size":[1]})",
                             R"({"result":true,"total_size":18446744073709551615})"}) {
    logs.clear();
    Channel_Fault fault;
    fault.kind = Channel_Fault::RESULT_VALUE;
    fault.value = parse(answer);
    channel_.inject(fault);
    EXPECT_EQ(-1, request_agent_to_get_storage_file_size("agent.size", "agent-7", files)) << answer;
    ASSERT_EQ(1u, logs.records().size()) << logs.dump();
    EXPECT_TRUE(logs.has_fragment(LM_ERROR, extract_failure)) << logs.dump();
  }

  logs.clear();
  channel_.inject(Channel_Fault());
  EXPECT_EQ(-1, request_agent_to_get_storage_file_size("agent.size", "agent-7", files));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to get storage size on agent 'agent-7', JSON-RPC error.\n"))
      << logs.dump();
  EXPECT_EQ(-1, request_agent_to_get_storage_file_size("agent.size", nullptr, files));
  EXPECT_TRUE(logs.has_check("host is NULL or \"\"")) << logs.dump();
}

// A process whose command line looks like a client-I/O file system serving a mount.
class Serving_Process {
 public:
  explicit Serving_Process(const std::string& mount_dir) {
    pid_ = ::fork();
    if (pid_ == 0) {
      // A group of its own, so the shell's sleep goes with it.
      ::setpgid(0, 0);
      ::execl("/bin/sh", "sh", "-c", "sleep 60; :", "clntiofs_i", "http://127.0.0.1:1/bucket",
              mount_dir.c_str(), "-f", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    if (pid_ > 0) ::setpgid(pid_, pid_);  // both sides, whichever runs first
  }
  ~Serving_Process() {
    if (pid_ > 0) {
      ::kill(-pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  int pid() const { return pid_; }

 private:
  int pid_ = -1;
};

const Client_IO_FS_Process* find(const std::vector<Client_IO_FS_Process>& list, int pid) {
  for (const auto& p : list)
    if (p.pid == pid) return &p;
  return nullptr;
}

TEST(Client_IO_FS_Live, running_processes_are_found_in_proc) {
  au_test::Temp_Dir dir;
  const std::string mount_dir = dir / "serving";
  const std::string table =
      dir.write_file("mtab", "clntiofs_i " + mount_dir + " fuse.clntiofs_i rw 0 0\n");
  Serving_Process child(mount_dir);
  ASSERT_GT(child.pid(), 0);

  // The command line is in place once exec is done; give it a moment.
  std::vector<Client_IO_FS_Process> list;
  for (int i = 0; i < 200 && find(list, child.pid()) == nullptr; ++i) {
    ASSERT_TRUE(client_io_fs::list_processes("/proc", table.c_str(), list));
    if (find(list, child.pid()) == nullptr) ::usleep(10000);
  }
  const Client_IO_FS_Process* found = find(list, child.pid());
  ASSERT_NE(nullptr, found);
  EXPECT_EQ("http://127.0.0.1:1/bucket", found->url);
  EXPECT_EQ(mount_dir, found->mount_dir);
  EXPECT_TRUE(found->mounted);

  // Against the host's real mount table the directory is not mounted.
  au_test::Log_Capture logs;
  ASSERT_TRUE(list_client_io_fs_process(list));
  found = find(list, child.pid());
  ASSERT_NE(nullptr, found);
  EXPECT_FALSE(found->mounted);
  EXPECT_TRUE(logs.has(LM_ERROR, mount_dir + " has unmonted, but process clntiofs_i (pid " +
                                     std::to_string(child.pid()) + ") does not exit\n"))
      << logs.dump();
  std::set<std::string> mounted;
  EXPECT_TRUE(get_mounted_paths(mounted));
  EXPECT_EQ(0u, mounted.count(mount_dir));
}

}  // namespace
