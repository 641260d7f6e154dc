// A simulated backup server on loopback, with the process-wide settings aimed at it
// and short time limits, so that a stalled or dropped exchange fails quickly.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "framework/http/host_manager.h"
#include "framework/http/http_options.h"
#include "framework/jsonrpc/json_rpc_http_session.h"
#include "sim/backupd/backupd_sim.h"
#include "sim/backupd/jsonrpc_channel.h"
#include "tests/support/http_test_server.h"
#include "tests/support/json_text.h"
#include "tests/support/log_capture.h"

class Backupd_Sim_Test : public ::testing::Test {
 protected:
  static constexpr const char* HOST_UUID = "host 1/a";

  void SetUp() override {
    ASSERT_TRUE(sim_.start());
    HTTP_Options::instance()->backupd(HTTP_Server_Address{"127.0.0.1", sim_.port(), false});
    HTTP_Connection_Settings limits;
    limits.connect_timeout = 2;
    limits.transfer_timeout = 3;
    limits.idle_timeout = 2;
    HTTP_Options::instance()->defaults(limits);
    Host_Manager::instance()->uuid(HOST_UUID);
    Host_Manager::instance()->access_key("");
  }

  void TearDown() override { sim_.stop(); }

  // The body of a recorded request as JSON (null when it is not JSON).
  static json_spirit::Value body_of(const au_sim::Sim_Request& request) {
    json_spirit::Value v;
    json_spirit::read(request.body, v);
    return v;
  }

  static json_spirit::Value parse(const std::string& text) { return au_test::parse_json(text); }

  std::size_t count_at(ACE_Log_Priority priority) const {
    std::size_t n = 0;
    for (const auto& r : log_.records())
      if (r.priority == priority) ++n;
    return n;
  }

  au_sim::Backupd_Sim sim_;
  au_test::Log_Capture log_;
};

// The same server with a JSON-RPC channel at "/d2/jr" through which one fake agent
// answers for `CHANNEL`. Retries come quickly.
class Channel_Sim_Test : public Backupd_Sim_Test {
 protected:
  static constexpr const char* CHANNEL = "agent-7";

  void SetUp() override {
    Backupd_Sim_Test::SetUp();
    JSON_RPC_HTTP_Session::default_retry_interval(1);
    channel_.add_agent(CHANNEL, agent_);
    channel_.attach(sim_);
  }

  // How the next forward goes wrong: `kind`, with `code` and `message` for an error reply.
  static au_sim::Channel_Fault channel_fault(au_sim::Channel_Fault::Kind kind, int code = -32000,
                                             std::string message = "") {
    au_sim::Channel_Fault fault;
    fault.kind = kind;
    fault.code = code;
    fault.message = std::move(message);
    return fault;
  }
  // The agent's next result replaced with `value`.
  static au_sim::Channel_Fault result_value(json_spirit::Value value) {
    au_sim::Channel_Fault fault = channel_fault(au_sim::Channel_Fault::RESULT_VALUE);
    fault.value = std::move(value);
    return fault;
  }

  // The params of the last call the agent received.
  json_spirit::Value last_params() const {
    const auto calls = agent_->calls();
    return calls.empty() ? json_spirit::Value() : calls.back().get_obj().at("params");
  }

  std::shared_ptr<au_sim::Fake_Agent> agent_ = std::make_shared<au_sim::Fake_Agent>();
  au_sim::JSON_RPC_Channel channel_;
};
