// json_rpc_forward against the backup server simulator: the exact request that goes
// out, and every way the answer can be refused.
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/integration/sim/backupd_sim_fixture.h"
#include "utils/agent/json_rpc_channel_forward.h"

namespace {

using au_sim::Channel_Fault;
using json_spirit::Object;
using json_spirit::Value;

class JSON_RPC_Forward_Test : public Channel_Sim_Test {
 protected:
  void SetUp() override {
    Channel_Sim_Test::SetUp();
    agent_->set_file_size("/data/a", 7);
    Host_Manager::instance()->access_key("host-key");
  }

  Backupd_Info named_server() const {
    Backupd_Info info;
    info.host = "127.0.0.1";
    info.port = sim_.port();
    info.access_key = "named-key";
    info.channel_id = CHANNEL;
    return info;
  }

  // Forwards a storage-size check through the short form.
  bool check_size(Value* result, json_spirit::Value_type type = json_spirit::obj_type) {
    const Value params = Object{{"action", "check_storage_size"}, {"files", json_spirit::Array{"/data/a"}}};
    return json_rpc_forward("agent.storage", params, CHANNEL, result, type);
  }
};

TEST_F(JSON_RPC_Forward_Test, wraps_the_call_in_channel_forward_and_returns_its_result) {
  agent_->add_mount("/mnt/x");
  Value result;
  ASSERT_TRUE(json_rpc_forward(named_server(), "agent.umount", Object{{"action", "umount"}, {"mnt", "/mnt/x"}},
                               &result, json_spirit::obj_type))
      << log_.dump();
  EXPECT_EQ(parse(R"({"result":true})"), result);
  EXPECT_TRUE(agent_->mounts().empty());
  EXPECT_TRUE(log_.records().empty()) << log_.dump();

  const auto sent = sim_.requests_to("/d2/jr");
  ASSERT_EQ(1u, sent.size());
  EXPECT_EQ("named-key", sent[0].header("X-Access-Key")) << "the record's key replaces the host's";
  Object body = body_of(sent[0]).get_obj();
  EXPECT_EQ(json_spirit::int_type, body.at("id").type());
  body.erase("id");
  EXPECT_EQ(parse(R"({"jsonrpc":"2.0","method":"channel.forward","params":{"channel_id":"agent-7",
                      "channel_type":"agent","jsonrpc_request":{"method":"agent.umount",
                      "params":{"action":"umount","mnt":"/mnt/x"}}}})"),
            Value(body));

  // Params of any type travel as they are; this agent answers such a call with an error.
  EXPECT_FALSE(json_rpc_forward(named_server(), "agent.echo", Value("plain"), &result, json_spirit::obj_type));
  EXPECT_EQ(parse(R"({"result":true})"), result) << "a failure leaves the result alone";
  EXPECT_EQ(Value("plain"), channel_.forwarded().back().get_obj().at("jsonrpc_request").get_obj().at("params"));
  EXPECT_TRUE(log_.has(LM_ERROR, "channel.forward failed, method agent.echo, channel_id agent-7, "
                                 "code -32602: params must be an object.\n"))
      << log_.dump();
}

TEST_F(JSON_RPC_Forward_Test, the_short_form_uses_the_process_backup_server_and_its_key) {
  sim_.require_access_key("host-key");
  Value result;
  ASSERT_TRUE(check_size(&result));
  EXPECT_EQ(parse(R"({"result":true,"total_size":7})"), result);

  Backupd_Info loaded;
  loaded.channel_id = "kept";
  loaded.load();
  EXPECT_EQ(std::make_tuple(std::string("127.0.0.1"), sim_.port(), false, std::string("host-key"),
                            std::string("kept")),
            std::make_tuple(loaded.host, loaded.port, loaded.ssl, loaded.access_key, loaded.channel_id));

  // A missing method or channel fails before any request.
  sim_.clear_requests();
  log_.clear();
  EXPECT_FALSE(json_rpc_forward("", Object(), CHANNEL, &result, json_spirit::obj_type));
  EXPECT_TRUE(log_.has_check("method is empty")) << log_.dump();
  EXPECT_FALSE(json_rpc_forward("agent.x", Object(), "", &result, json_spirit::obj_type));
  EXPECT_TRUE(log_.has_check("info.channel_id is empty")) << log_.dump();
  EXPECT_EQ(2u, log_.records().size());
  EXPECT_TRUE(sim_.requests().empty());
}

TEST_F(JSON_RPC_Forward_Test, error_and_mistyped_replies_are_refused_with_one_line) {
  const Value untouched("untouched");
  const std::string sent_to = "/d2/jr' is not valid: ";
  const std::vector<std::pair<Channel_Fault, std::string>> cases = {
      {channel_fault(Channel_Fault::ERROR_REPLY, 17, "agent is busy"),
       "channel.forward failed, method agent.storage, channel_id agent-7, code 17: agent is busy.\n"},
      {result_value(5),
       "channel.forward failed, method agent.storage, channel_id agent-7, expected 6, got 5\n"},
      {channel_fault(Channel_Fault::NO_REPLY), sent_to + "the body is empty or null."},
      {channel_fault(Channel_Fault::MALFORMED), "failed: the reply is not JSON"},
      {channel_fault(Channel_Fault::WRONG_ID), sent_to + "it answers id \"not-"},
      {channel_fault(Channel_Fault::NOT_A_REPLY), sent_to + "it is a call, not a reply."},
  };
  for (const auto& c : cases) {
    log_.clear();
    channel_.inject(c.first);
    Value result = untouched;
    const auto expected = c.first.kind == Channel_Fault::RESULT_VALUE ? json_spirit::real_type : json_spirit::obj_type;
    EXPECT_FALSE(check_size(&result, expected)) << c.second;
    EXPECT_EQ(untouched, result) << c.second;
    ASSERT_EQ(1u, log_.records().size()) << log_.dump();
    // Whole lines are exact; the rest name the server's address around the fragment.
    if (c.second.back() == '\n')
      EXPECT_TRUE(log_.has(LM_ERROR, c.second)) << log_.dump();
    else
      EXPECT_TRUE(log_.has_fragment(LM_ERROR, c.second)) << log_.dump();
  }

  Backupd_Info elsewhere = named_server();
  elsewhere.channel_id = "ch-gone";
  EXPECT_FALSE(json_rpc_forward(elsewhere, "agent.x", Object(), nullptr, json_spirit::obj_type));
  EXPECT_TRUE(log_.has(LM_ERROR, "channel.forward failed, method agent.x, channel_id ch-gone, "
                                 "code -32010: channel 'ch-gone' is not connected.\n"))
      << log_.dump();

  // Without a result wanted any reply but an error succeeds.
  channel_.inject(result_value("not an object"));
  EXPECT_TRUE(check_size(nullptr));
  channel_.inject(Channel_Fault());
  EXPECT_FALSE(check_size(nullptr));

  // A multi-megabyte result comes through whole.
  channel_.inject(result_value(std::string(6 << 20, 'x')));
  Value result;
  ASSERT_TRUE(check_size(&result, json_spirit::str_type));
  EXPECT_EQ(std::size_t(6 << 20), result.get_str().size());
}

TEST_F(JSON_RPC_Forward_Test, unreachable_slow_and_failing_servers_give_false_and_one_line) {
  Backupd_Info nowhere = named_server();
  nowhere.port = au_test::unused_local_port();
  Value result;
  EXPECT_FALSE(json_rpc_forward(nowhere, "agent.x", Object(), &result, json_spirit::obj_type));
  ASSERT_EQ(1u, log_.records().size()) << log_.dump();
  EXPECT_TRUE(log_.has_fragment(LM_ERROR, "HTTP request 'POST http://127.0.0.1:" + std::to_string(nowhere.port) +
                                              "/d2/jr' failed"))
      << log_.dump();

  log_.clear();
  sim_.inject("/d2/jr", au_sim::Sim_Fault::reply(503, "{}", -1));
  EXPECT_FALSE(check_size(&result));
  EXPECT_EQ(1u, sim_.requests_to("/d2/jr").size()) << "a call that reached the server is not sent again";
  ASSERT_EQ(1u, log_.records().size()) << log_.dump();
  EXPECT_TRUE(log_.has_fragment(LM_ERROR, "/d2/jr' failed: status 503.")) << log_.dump();

  log_.clear();
  HTTP_Connection_Settings quick = HTTP_Options::instance()->defaults();
  quick.transfer_timeout = 1;
  HTTP_Options::instance()->defaults(quick);
  for (const auto& stall : {au_sim::Sim_Fault::delay(60000, -1), au_sim::Sim_Fault::drop(-1)}) {
    sim_.clear_faults();
    sim_.inject("/d2/jr", stall);
    EXPECT_FALSE(check_size(&result));
  }
  EXPECT_EQ(2u, log_.records().size()) << log_.dump();
  EXPECT_TRUE(result.is_null());
}

}  // namespace
