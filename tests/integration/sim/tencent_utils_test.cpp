// The mount helpers against the backup server simulator and its fake agent. The
// clntiofs_i process list from the real /proc is run through agentutil (cli_mounts).
#include <ace/ACE.h>

#include <string>
#include <vector>

#include "tests/integration/sim/backupd_sim_fixture.h"
#include "utils/agent/tencent/tencent_utils.h"

namespace {

using au_sim::Channel_Fault;
using json_spirit::Object;
using json_spirit::Value;

class Agent_Mount_Requests : public Channel_Sim_Test {
 protected:
  bool mount(const char* mnt, bool* has_mounted, const char* compress = nullptr, const char* encryption = nullptr,
             const char* iv = nullptr) {
    return request_agent_to_mount("agent.mount", CHANNEL, "http://s3.local/bucket", mnt, "backup", 30, 0, compress, 9,
                                  encryption, "secret-key", iv, nullptr, has_mounted);
  }
};

TEST_F(Agent_Mount_Requests, mount_sends_exactly_the_options_given_and_refuses_bad_ones_first) {
  const char* const R = "http://s3.local/b";
  EXPECT_FALSE(request_agent_to_mount(nullptr, CHANNEL, R, "/m", "u", 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_FALSE(request_agent_to_mount("m", "", R, "/m", "u", 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_FALSE(request_agent_to_mount("m", CHANNEL, nullptr, "/m", "u", 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_FALSE(request_agent_to_mount("m", CHANNEL, R, "", "u", 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_FALSE(request_agent_to_mount("m", CHANNEL, R, "/m", nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  for (const char* what : {"method", "host", "remote_url", "mnt", "user"})
    EXPECT_TRUE(log_.has_check(std::string(what) + " is NULL or \"\"")) << what << log_.dump();
  EXPECT_FALSE(mount("/mnt/a", nullptr, nullptr, "aes", ""));
  EXPECT_TRUE(log_.has(LM_ERROR, "Invalid encryption param, need 'encryption_key' and 'encryption_iv'.\n"))
      << log_.dump();
  EXPECT_EQ(6u, log_.records().size()) << log_.dump();
  EXPECT_TRUE(sim_.requests().empty());

  log_.clear();
  bool has_mounted = true;
  ASSERT_TRUE(request_agent_to_mount("agent.mount", CHANNEL, "http://s3.local/bucket", "/mnt/a", "backup", 30, 1024,
                                     "zstd", 3, "aes", "secret-key", "iv-16", "http://origin/b", &has_mounted))
      << log_.dump();
  EXPECT_FALSE(has_mounted);
  EXPECT_EQ(parse(R"({"action":"mount","remote_url":"http://s3.local/bucket","mnt":"/mnt/a",
                      "user":"backup","retry_timeout":30,"limit_rate":1024,"origin_url":"http://origin/b",
                      "compress_method":"zstd","compress_level":3,"encryption_method":"aes",
                      "encryption_key":"c2VjcmV0LWtleQ==","encryption_iv":"aXYtMTY="})"),
            last_params());
  EXPECT_EQ("agent.mount", agent_->calls().back().get_obj().at("method").get_str());
  EXPECT_TRUE(log_.records().empty()) << log_.dump();

  // No compression method: no level either, whatever the caller passed.
  ASSERT_TRUE(mount("/mnt/a", &has_mounted, ""));
  EXPECT_TRUE(has_mounted) << "the agent had it mounted already";
  EXPECT_EQ(parse(R"({"action":"mount","remote_url":"http://s3.local/bucket","mnt":"/mnt/a",
                      "user":"backup","retry_timeout":30,"limit_rate":0})"),
            last_params());

  agent_->refuse_remote("http://s3.local/bucket");
  EXPECT_FALSE(mount("/mnt/b", nullptr));
  // A refused mount still tells whether the directory was mounted already.
  bool was_mounted = false;
  channel_.inject(result_value(Object{{"result", false}, {"has_mounted", true}}));
  EXPECT_FALSE(mount("/mnt/b", &was_mounted));
  EXPECT_TRUE(was_mounted);
}

TEST_F(Agent_Mount_Requests, keys_never_reach_a_log_line_even_when_tracing) {
  Host_Manager::instance()->access_key("host-key-123");
  channel_.inject(channel_fault(Channel_Fault::ERROR_REPLY, -32000, "mount refused"));
  ACE::debug(true);
  EXPECT_FALSE(mount("/mnt/a", nullptr, nullptr, "aes", "iv-16"));
  ACE::debug(false);
  EXPECT_EQ("host-key-123", sim_.requests_to("/d2/jr").at(0).header("X-Access-Key"));
  EXPECT_TRUE(log_.has(LM_ERROR, "channel.forward failed, method agent.mount, channel_id agent-7, "
                                 "code -32000: mount refused.\n"))
      << log_.dump();
  EXPECT_TRUE(log_.has_fragment(LM_DEBUG, "called HTTP_Session::send(POST ")) << "headers traced";
  for (const char* secret : {"host-key-123", "secret-key", "c2VjcmV0LWtleQ==", "aXYtMTY="})
    EXPECT_EQ(std::string::npos, log_.dump().find(secret)) << secret;
}

TEST_F(Agent_Mount_Requests, umount_reports_what_the_agent_says) {
  agent_->add_mount("/mnt/a");
  EXPECT_TRUE(request_agent_to_umount("agent.umount", CHANNEL, "/mnt/a"));
  EXPECT_EQ(parse(R"({"action":"umount","mnt":"/mnt/a"})"), last_params());
  EXPECT_FALSE(request_agent_to_umount("agent.umount", CHANNEL, "/mnt/a")) << "not mounted now";

  EXPECT_FALSE(request_agent_to_umount("agent.umount", CHANNEL, nullptr));
  EXPECT_TRUE(log_.has_check("mnt is NULL or \"\"")) << log_.dump();
  channel_.inject(result_value(Object{{"result", "yes"}}));
  EXPECT_FALSE(request_agent_to_umount("agent.umount", CHANNEL, "/mnt/a"));
  EXPECT_TRUE(log_.has(LM_ERROR, "Agent 'agent-7' answered 'agent.umount' with 'result' of str_type, "
                                 "not a boolean.\n"))
      << log_.dump();
}

TEST_F(Agent_Mount_Requests, storage_size_is_the_total_or_minus_one_with_its_reason) {
  agent_->set_file_size("/data/a", 7);
  agent_->set_file_size("/data/b", 5);
  const std::vector<Value> files{"/data/a", "/data/b"};
  EXPECT_EQ(12, request_agent_to_get_storage_file_size("agent.size", CHANNEL, files));
  EXPECT_EQ(parse(R"({"action":"check_storage_size","files":["/data/a","/data/b"]})"), last_params());

  EXPECT_EQ(-1, request_agent_to_get_storage_file_size("agent.size", CHANNEL, {"/data/zz"}));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to check storage size on agent 'agent-7', 'result' is false.\n"))
      << log_.dump();

  for (const char* answer : {R"({"result":true})", R"({"result":true,"total_size":-3})",
                             R"({"result":true,"total_size":[1]})",
                             R"({"result":true,"total_size":18446744073709551615})"}) {
    log_.clear();
    channel_.inject(result_value(parse(answer)));
    EXPECT_EQ(-1, request_agent_to_get_storage_file_size("agent.size", CHANNEL, files)) << answer;
    ASSERT_EQ(1u, log_.records().size()) << log_.dump();
    EXPECT_TRUE(log_.has_fragment(LM_ERROR, "Failed to extract info from JSON-RPC response when getting "
                                            "storage size on agent 'agent-7', error: "))
        << log_.dump();
  }

  channel_.inject(Channel_Fault());
  EXPECT_EQ(-1, request_agent_to_get_storage_file_size("agent.size", CHANNEL, files));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to get storage size on agent 'agent-7', JSON-RPC error.\n")) << log_.dump();
  EXPECT_EQ(-1, request_agent_to_get_storage_file_size("agent.size", nullptr, files));
  EXPECT_TRUE(log_.has_check("host is NULL or \"\"")) << log_.dump();
}

}  // namespace
