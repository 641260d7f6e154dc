// agentutil pool info against the backup server simulator: a pool's description as a
// person and a script see it, with every secret masked, and failures in one line.
#include <string>
#include <vector>

#include "framework/base/base64.h"
#include "tests/support/temp_dir.h"
#include "tests/integration/sim/backupd_sim_fixture.h"
#include "tests/support/agentutil_runner.h"

namespace {

using au_test::Run_Result;
using json_spirit::Object;
using json_spirit::Value;

const char* const ACCESS_KEY = "agent-key-only-in-the-header";
const std::string POOL_KEY = base64_encode(std::string(32, 'k'));
const std::string POOL_IV = base64_encode(std::string(12, 'i'));
const char* const TENANT_KEY = "tenant-key-never-shown";
const char* const S3_SECRET = "s3-secret-never-shown";

class Agentutil_Pool : public Backupd_Sim_Test {
 protected:
  void SetUp() override {
    ASSERT_NE("", au_test::agentutil_path()) << "AGENTUTIL_BUILD_DIR is not set";
    Backupd_Sim_Test::SetUp();
    sim_.require_access_key(ACCESS_KEY);
    key_file_ = dir_.write_file("key", std::string(ACCESS_KEY) + "\n");
    sim_.set_pool("vault", Object{{"uuid", "u-9"}, {"name", "vault"}, {"url", "s3://127.0.0.1:9/b"},
                                  {"cipher", "aes-256-gcm"}, {"key", POOL_KEY}, {"iv", POOL_IV},
                                  {"tenant_access_key", TENANT_KEY}, {"device_exists", true},
                                  {"node_addrs", Object{{"2", "10.0.0.2"}}}, {"s3_enabled", true},
                                  {"default_s3", Object{{"access_key", "AK"}, {"secret_key", S3_SECRET},
                                                        {"region", "eu"}}}});
  }

  Run_Result pool_info(std::vector<std::string> args, const std::string& server = "") {
    std::vector<std::string> all{"pool", "info", "--server",
                                 server.empty() ? "127.0.0.1:" + std::to_string(sim_.port()) : server,
                                 "--access-key-file", key_file_};
    all.insert(all.end(), args.begin(), args.end());
    return au_test::run_agentutil(all, dir_.path());
  }

  static void expect_no_secret(const Run_Result& r) {
    for (const std::string& secret : {std::string(ACCESS_KEY), POOL_KEY, POOL_IV,
                                      std::string(TENANT_KEY), std::string(S3_SECRET)})
      EXPECT_EQ(std::string::npos, (r.out + r.err).find(secret)) << secret << "\n" << r.out << r.err;
  }

  au_test::Temp_Dir dir_;
  std::string key_file_;
};

TEST_F(Agentutil_Pool, info_shows_the_description_with_its_secrets_masked) {
  const Run_Result text = pool_info({"vault", "--device", "dev-3", "--restore"});
  ASSERT_EQ(0, text.status) << text.err;
  for (const char* line : {"url                s3://127.0.0.1:9/b\n",
                           "device exists      yes\n",
                           "encryption         aes-256-gcm, key ******, iv ******\n",
                           "tenant access key  ******\n",
                           "nodes              2=10.0.0.2\n",
                           "s3                 yes, access_key=******, region=eu, secret_key=******\n"})
    EXPECT_NE(std::string::npos, text.out.find(line)) << line << "\n" << text.out;
  EXPECT_FALSE(au_test::has_trailing_blanks(text.out));
  const auto asked = sim_.pool_requests("vault");
  ASSERT_EQ(1u, asked.size());
  EXPECT_EQ("dev-3", asked[0].param("device_uuid"));
  EXPECT_EQ("true", asked[0].param("is_restore"));

  const Run_Result json = pool_info({"vault", "--json"});
  ASSERT_EQ(0, json.status) << json.err;
  const Object printed = parse(json.out).get_obj();
  EXPECT_EQ(Value("u-9"), printed.at("uuid"));
  EXPECT_EQ(Value("******"), printed.at("key"));
  EXPECT_EQ(Value("******"), printed.at("tenant_access_key"));
  EXPECT_EQ(parse(R"({"access_key":"******","secret_key":"******","region":"eu"})"), printed.at("default_s3"));
  EXPECT_EQ(parse(R"({"2":"10.0.0.2"})"), printed.at("node_addrs"));
  expect_no_secret(text);
  expect_no_secret(json);
}

TEST_F(Agentutil_Pool, a_pool_that_cannot_be_described_fails_in_one_line) {
  const std::string wrong_key = dir_.write_file("wrong", "not-the-key\n");
  const struct {
    Run_Result run;
    std::string detail;
  } cases[] = {
      {pool_info({"nosuch"}), "no description of pool 'nosuch': Failed to get the description of pool "
                              "'nosuch': no such pool"},
      {au_test::run_agentutil({"pool", "info", "--server", "127.0.0.1:" + std::to_string(sim_.port()),
                               "--access-key-file", wrong_key, "vault"}, dir_.path()),
       "no description of pool 'vault': Failed to get the description of pool 'vault': access denied"},
      {pool_info({"vault"}, "127.0.0.1:" + std::to_string(au_test::unused_local_port())),
       "no description of pool 'vault': Failed to get the description of pool 'vault': no reply"},
      {pool_info({"vault"}, "127.0.0.1"), "bad --server '127.0.0.1': expected HOST:PORT"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(1, c.run.status) << c.detail;
    EXPECT_EQ("", c.run.out);
    EXPECT_EQ("agentutil: " + c.detail + "\n", c.run.err);
    expect_no_secret(c.run);
  }
}

}  // namespace
