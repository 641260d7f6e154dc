#include "framework/client_io/client_io_options.h"

#include <gtest/gtest.h>

#include "framework/json/reader.h"
#include "framework/json/writer.h"
#include "tests/support/log_capture.h"

namespace {

json_spirit::Value parse(const std::string& text) {
  json_spirit::Value v;
  EXPECT_TRUE(json_spirit::read(text, v)) << text;
  return v;
}

const char* const FULL = R"({"compression_method":"lzop",
  "rate_limits":{"dest":[{"start_time":3600,"end_time":7200,"max_bytes_per_second":1048576}],
                 "src":[{"start_time":80000,"end_time":100,"max_bytes_per_second":0}]},
  "d2t_access_mode":"rpc","d2t_rpc_host":"127.0.0.1","d2t_rpc_port":7070,
  "connect_timeout_ms":1500,"io_timeout_ms":30000,"retry_count":5,"retry_backoff_ms":50,
  "resume_buffer_size":16777216,"cipher":"aes-256-gcm",
  "key":"00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff",
  "iv":"0123456789abcdef01234567","dedup":true,"access_key":"AKIDSECRET1",
  "secret_key":"sk-SECRET2","node_addrs":{"1":"10.0.0.1","4294967295":"10.0.0.2"},
  "extra_options":{"s3_region":"eu-1"}})";

TEST(Client_IO_Options, a_full_document_round_trips_exactly_and_dumps_no_secret_into_log_text) {
  Client_IO_Base::Options o;
  ASSERT_TRUE(o.load(parse(FULL)));
  EXPECT_EQ(o.compression_method, COMPR_LZOP);
  EXPECT_EQ(o.d2t_access_mode, Client_IO_Base::D2T_Access_RPC);
  EXPECT_EQ(o.node_addrs.at(4294967295u), "10.0.0.2");
  ASSERT_EQ(o.rate_limits.src_rate_limits.size(), 1u);
  EXPECT_EQ(o.rate_limits.dest_rate_limits[0].max_bytes_per_second, 1048576u);

  // Text out and back in: equal options, identical text.
  const std::string text = json_spirit::write(o.dump());
  Client_IO_Base::Options again;
  ASSERT_TRUE(again.load(parse(text)));
  EXPECT_TRUE(again == o);
  EXPECT_EQ(json_spirit::write(again.dump()), text);
  EXPECT_EQ(json_spirit::write(parse(FULL)), text);

  const std::string logged = json_spirit::JSON_Redacted_Dump(o.dump()).str();
  for (const char* secret : {"AKIDSECRET1", "sk-SECRET2", "0123456789abcdef01234567", "00112233"}) {
    EXPECT_EQ(logged.find(secret), std::string::npos) << secret;
  }
  // Defaults survive a round trip too, and an empty document is the defaults.
  Client_IO_Base::Options defaults, reloaded;
  ASSERT_TRUE(reloaded.load(defaults.dump()));
  EXPECT_TRUE(reloaded == defaults);
  ASSERT_TRUE(reloaded.load(parse("{}")));
  EXPECT_TRUE(reloaded == defaults);
}

TEST(Client_IO_Options, a_refused_document_logs_one_line_and_changes_nothing) {
  const struct {
    const char* doc;
    const char* why;
  } cases[] = {
      {R"([])", R"("client_io_opts" must be obj_type)"},
      {R"({"compression_method":"gzip"})", R"("compression_method" has unknown value 'gzip')"},
      {R"({"compression_method":3})", R"("compression_method" must be str_type)"},
      {R"({"d2t_access_mode":"lan"})", R"("d2t_access_mode" has unknown value 'lan')"},
      {R"({"cipher":"aes-128-cbc"})", R"("cipher" has unknown value 'aes-128-cbc')"},
      {R"({"d2t_rpc_port":65536})", R"("d2t_rpc_port" must be at most 65535)"},
      {R"({"retry_count":-1})", R"("retry_count" must not be negative)"},
      {R"({"io_timeout_ms":1.5})", R"("io_timeout_ms" must be int_type)"},
      {R"({"dedup":"yes"})", R"("dedup" must be bool_type)"},
      {R"({"resume_buffer_size":1024})", R"("resume_buffer_size" must be at least 5 MiB)"},
      {R"({"key":"SECRETSECRET"})", R"("key" must be 64 hex digits)"},
      {R"({"cipher":"aes-256-gcm"})", R"("cipher" needs both "key" and "iv")"},
      {R"({"node_addrs":{"x1":"a"}})", R"("node_addrs.x1" is not a node number)"},
      {R"({"node_addrs":{"4294967296":"a"}})", R"("node_addrs.4294967296" is not a node number)"},
      {R"({"rate_limits":{"dest":[{"start_time":86400}]}})",
       R"("rate_limits.dest.start_time" must be at most 86399)"},
      {R"({"rate_limits":{"up":[]}})", R"("rate_limits.up" is not a rate limit direction)"},
      {R"({"extra_options":{"a":1}})", R"("extra_options.a" must be str_type)"},
      {R"({"retry_count":1,"timeout":5})", R"("timeout" is not a client I/O option)"},
  };
  for (const auto& c : cases) {
    Client_IO_Base::Options o;
    o.retry_count = 9;
    o.access_key = "kept";
    const Client_IO_Base::Options before = o;
    au_test::Log_Capture log;
    EXPECT_FALSE(o.load(parse(c.doc))) << c.doc;
    EXPECT_TRUE(o == before) << c.doc;
    ASSERT_EQ(log.records().size(), 1u) << log.dump();
    EXPECT_TRUE(log.has(LM_ERROR, std::string("Failed to load client I/O options: ") + c.why + "\n"))
        << log.dump();
    EXPECT_EQ(log.dump().find("SECRET"), std::string::npos);
  }
}

}  // namespace
