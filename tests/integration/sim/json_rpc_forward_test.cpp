// json_rpc_forward against the backup server simulator: the exact request that goes
// out, and every way the answer can be refused.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "framework/http/host_manager.h"
#include "framework/http/http_options.h"
#include "framework/json/reader.h"
#include "framework/jsonrpc/json_rpc_http_session.h"
#include "sim/backupd/backupd_sim.h"
#include "sim/backupd/jsonrpc_channel.h"
#include "tests/support/http_test_server.h"
#include "tests/support/json_text.h"
#include "tests/support/log_capture.h"
#include "utils/agent/json_rpc_channel_forward.h"

namespace {

using au_sim::Channel_Fault;
using json_spirit::Object;
using json_spirit::Value;

Value parse(const std::string& text) { return au_test::parse_json(text); }

Channel_Fault fault(Channel_Fault::Kind kind, Value value = Value(), int code = -32000,
                    std::string message = "") {
  Channel_Fault f;
  f.kind = kind;
  f.value = std::move(value);
  f.code = code;
  f.message = std::move(message);
  return f;
}

class JSON_RPC_Forward_Test : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_defaults_ = HTTP_Options::instance()->defaults();
    saved_backupd_ = HTTP_Options::instance()->backupd();
    JSON_RPC_HTTP_Session::default_retry_interval(1);
    agent_->set_file_size("/data/a", 7);
    channel_.add_agent("ch-1", agent_);
    channel_.attach(sim_);
    ASSERT_TRUE(sim_.start());
    HTTP_Options::instance()->backupd(HTTP_Server_Address{"127.0.0.1", sim_.port(), false});
    Host_Manager::instance()->access_key("host-key");
  }

  void TearDown() override {
    sim_.stop();
    HTTP_Options::instance()->defaults(saved_defaults_);
    HTTP_Options::instance()->backupd(saved_backupd_);
    Host_Manager::instance()->access_key("");
  }

  Backupd_Info named_server() const {
    Backupd_Info info;
    info.host = "127.0.0.1";
    info.port = sim_.port();
    info.access_key = "named-key";
    info.channel_id = "ch-1";
    return info;
  }

  // Forwards a storage-size check through the short form.
  bool check_size(Value* result, json_spirit::Value_type type = json_spirit::obj_type) {
    const Value params = Object{{"action", "check_storage_size"}, {"files", json_spirit::Array{"/data/a"}}};
    return json_rpc_forward("agent.storage", params, "ch-1", result, type);
  }

  std::shared_ptr<au_sim::Fake_Agent> agent_ = std::make_shared<au_sim::Fake_Agent>();
  au_sim::JSON_RPC_Channel channel_;
  au_sim::Backupd_Sim sim_;
  HTTP_Connection_Settings saved_defaults_;
  HTTP_Server_Address saved_backupd_;
};

TEST_F(JSON_RPC_Forward_Test, wraps_the_call_in_channel_forward_and_returns_its_result) {
  au_test::Log_Capture logs;
  const Value params = Object{{"action", "umount"}, {"mnt", "/mnt/x"}};
  agent_->add_mount("/mnt/x");
  Value result;
  ASSERT_TRUE(json_rpc_forward(named_server(), "agent.umount", params, &result, json_spirit::obj_type))
      << logs.dump();
  EXPECT_EQ(parse(R"({"result":true})"), result);
  EXPECT_TRUE(agent_->mounts().empty());
  EXPECT_TRUE(logs.records().empty()) << logs.dump();

  const auto sent = sim_.requests_to("/d2/jr");
  ASSERT_EQ(1u, sent.size());
  EXPECT_EQ("POST", sent[0].method);
  EXPECT_EQ("named-key", sent[0].header("X-Access-Key")) << "the record's key replaces the host's";
  const Value sent_body = parse(sent[0].body);
  const Object& body = sent_body.get_obj();
  EXPECT_EQ(4u, body.size());
  EXPECT_EQ(Value("2.0"), body.at("jsonrpc"));
  EXPECT_EQ(Value("channel.forward"), body.at("method"));
  EXPECT_EQ(json_spirit::int_type, body.at("id").type());
  EXPECT_EQ(parse(R"({"channel_id":"ch-1","channel_type":"agent",
                      "jsonrpc_request":{"method":"agent.umount","params":{"action":"umount","mnt":"/mnt/x"}}})"),
            body.at("params"));

  // Params of any type travel as they are; this agent answers such a call with an error.
  EXPECT_FALSE(json_rpc_forward(named_server(), "agent.echo", Value("plain"), &result,
                                json_spirit::obj_type));
  EXPECT_EQ(parse(R"({"result":true})"), result) << "a failure leaves the result alone";
  EXPECT_EQ(Value("plain"), channel_.forwarded().back().get_obj().at("jsonrpc_request").get_obj().at("params"));
  EXPECT_TRUE(logs.has(LM_ERROR, "channel.forward failed, method agent.echo, channel_id ch-1, "
                                 "code -32602: params must be an object.\n"))
      << logs.dump();
}

TEST_F(JSON_RPC_Forward_Test, the_short_form_uses_the_process_backup_server_and_its_key) {
  sim_.require_access_key("host-key");
  Value result;
  ASSERT_TRUE(check_size(&result));
  EXPECT_EQ(parse(R"({"result":true,"total_size":7})"), result);
  EXPECT_EQ("host-key", sim_.requests_to("/d2/jr").at(0).header("X-Access-Key"));

  Backupd_Info loaded;
  loaded.channel_id = "kept";
  loaded.load();
  EXPECT_EQ("127.0.0.1", loaded.host);
  EXPECT_EQ(sim_.port(), loaded.port);
  EXPECT_FALSE(loaded.ssl);
  EXPECT_EQ("host-key", loaded.access_key);
  EXPECT_EQ("kept", loaded.channel_id);
  Backupd_Info defaults;
  EXPECT_TRUE(defaults.host.empty());
  EXPECT_EQ(50305, defaults.port);
}

TEST_F(JSON_RPC_Forward_Test, missing_method_or_channel_fails_before_any_request) {
  au_test::Log_Capture logs;
  Value result;
  EXPECT_FALSE(json_rpc_forward("", Object(), "ch-1", &result, json_spirit::obj_type));
  EXPECT_TRUE(logs.has_check("method is empty")) << logs.dump();
  EXPECT_FALSE(json_rpc_forward("agent.x", Object(), "", &result, json_spirit::obj_type));
  EXPECT_TRUE(logs.has_check("info.channel_id is empty")) << logs.dump();
  EXPECT_EQ(2u, logs.records().size());
  EXPECT_TRUE(sim_.requests().empty());
}

TEST_F(JSON_RPC_Forward_Test, error_and_mistyped_replies_are_refused_with_one_line) {
  const Value untouched("untouched");
  const char* const sent_to = "/d2/jr' is not valid: ";
  const std::vector<std::pair<Channel_Fault, std::string>> cases = {
      {fault(Channel_Fault::ERROR_REPLY, Value(), 17, "agent is busy"),
       "channel.forward failed, method agent.storage, channel_id ch-1, code 17: agent is busy.\n"},
      {fault(Channel_Fault::RESULT_VALUE, 5),
       "channel.forward failed, method agent.storage, channel_id ch-1, expected 6, got 5\n"},
      {fault(Channel_Fault::NO_REPLY), sent_to + std::string("the body is empty or null.")},
      {fault(Channel_Fault::MALFORMED), "failed: the reply is not JSON"},
      {fault(Channel_Fault::WRONG_ID), sent_to + std::string("it answers id \"not-")},
      {fault(Channel_Fault::NOT_A_REPLY), sent_to + std::string("it is a call, not a reply.")},
  };
  for (const auto& c : cases) {
    au_test::Log_Capture logs;
    channel_.inject(c.first);
    Value result = untouched;
    const auto expected = c.first.kind == Channel_Fault::RESULT_VALUE ? json_spirit::real_type
                                                                       : json_spirit::obj_type;
    EXPECT_FALSE(check_size(&result, expected)) << c.second;
    EXPECT_EQ(untouched, result) << c.second;
    ASSERT_EQ(1u, logs.records().size()) << logs.dump();
    EXPECT_EQ(LM_ERROR, logs.records()[0].priority);
    // Whole lines are exact; the rest name the server's address around the fragment.
    if (c.second.back() == '\n')
      EXPECT_EQ(c.second, logs.records()[0].text);
    else
      EXPECT_NE(std::string::npos, logs.records()[0].text.find(c.second)) << logs.dump();
  }

  au_test::Log_Capture logs;
  Backupd_Info elsewhere = named_server();
  elsewhere.channel_id = "ch-gone";
  EXPECT_FALSE(json_rpc_forward(elsewhere, "agent.x", Object(), nullptr, json_spirit::obj_type));
  EXPECT_TRUE(logs.has(LM_ERROR, "channel.forward failed, method agent.x, channel_id ch-gone, "
                                 "code -32010: channel 'ch-gone' is not connected.\n"))
      << logs.dump();
}

TEST_F(JSON_RPC_Forward_Test, without_a_result_wanted_any_reply_but_an_error_succeeds) {
  channel_.inject(fault(Channel_Fault::RESULT_VALUE, "not an object"));
  EXPECT_TRUE(check_size(nullptr));
  channel_.inject(fault(Channel_Fault::ERROR_REPLY));
  EXPECT_FALSE(check_size(nullptr));

  // A multi-megabyte result comes through whole.
  channel_.inject(fault(Channel_Fault::RESULT_VALUE, std::string(6 << 20, 'x')));
  Value result;
  ASSERT_TRUE(check_size(&result, json_spirit::str_type));
  EXPECT_EQ(std::size_t(6 << 20), result.get_str().size());
}

TEST_F(JSON_RPC_Forward_Test, unreachable_slow_and_failing_servers_give_false_and_one_line) {
  au_test::Log_Capture logs;
  Backupd_Info nowhere = named_server();
  nowhere.port = au_test::unused_local_port();
  Value result;
  EXPECT_FALSE(json_rpc_forward(nowhere, "agent.x", Object(), &result, json_spirit::obj_type));
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "HTTP request 'POST http://127.0.0.1:" +
                                              std::to_string(nowhere.port) + "/d2/jr' failed"))
      << logs.dump();

  logs.clear();
  sim_.inject("/d2/jr", au_sim::Sim_Fault::reply(503, "{}", -1));
  EXPECT_FALSE(check_size(&result));
  EXPECT_EQ(5u, sim_.requests_to("/d2/jr").size()) << "five attempts in all";
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "/d2/jr' failed: status 503.")) << logs.dump();

  sim_.clear_faults();
  logs.clear();
  HTTP_Connection_Settings quick = HTTP_Options::instance()->defaults();
  quick.transfer_timeout = 1;
  HTTP_Options::instance()->defaults(quick);
  sim_.inject("/d2/jr", au_sim::Sim_Fault::delay(60000, -1));
  EXPECT_FALSE(check_size(&result));
  sim_.clear_faults();
  sim_.inject("/d2/jr", au_sim::Sim_Fault::drop(-1));
  EXPECT_FALSE(check_size(&result));
  EXPECT_EQ(2u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(result.is_null());
}

}  // namespace
