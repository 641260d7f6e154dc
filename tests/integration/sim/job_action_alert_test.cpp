#include "tests/integration/sim/backupd_sim_fixture.h"
#include "utils/agent/job_action_helpers.h"
#include "utils/agent/restful_alert_client.h"

using au_sim::Backupd_Sim;
using au_sim::Sim_Fault;
using json_spirit::Object;
using json_spirit::Value;

using Job_Action = Backupd_Sim_Test;

TEST_F(Job_Action, checks_arguments_then_posts_action_with_job_in_path) {
  EXPECT_FALSE(job_action(nullptr, nullptr, nullptr, Object{}));
  EXPECT_TRUE(log_.has_check("action is NULL or \"\""));
  EXPECT_FALSE(job_action("cancel", "", nullptr, Object{}));
  EXPECT_TRUE(log_.has_check("agent is NULL or \"\""));
  EXPECT_FALSE(job_action("cancel", "a", "", Object{}));
  EXPECT_TRUE(log_.has_check("job_def_id is NULL or \"\""));
  EXPECT_EQ(3u, count_at(LM_EMERGENCY));
  EXPECT_TRUE(sim_.requests().empty());

  ASSERT_TRUE(job_action("cancel", "agent-7", "job/1", Object{{"force", true}}));
  const auto req = sim_.requests().back();
  EXPECT_EQ("POST /d2/r/v2/job/action?job_uuid=job/1", req.method + " " + req.target);  // as given, not encoded
  EXPECT_EQ(parse(R"({"action":"cancel","agent":"agent-7","options":{"force":true}})"), body_of(req));

  // A job id longer than the inline buffer still reaches the server whole.
  const std::string long_id(500, 'j');
  ASSERT_TRUE(job_action("pause", "a", long_id.c_str(), Object{}));
  EXPECT_EQ(long_id, sim_.requests().back().param("job_uuid"));

  sim_.inject(Backupd_Sim::JOB_ACTION_PATH, Sim_Fault::reply(500, "{}"));
  EXPECT_FALSE(job_action("resume", "a", "j9", Object{}));
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to resume job j9.\n")) << log_.dump();
}

using Alert_Client = Backupd_Sim_Test;

TEST_F(Alert_Client, sends_only_the_given_fields) {
  RESTful_Alert_Client client;
  EXPECT_FALSE(client.init("", sim_.port(), false, "key", 0, 5));
  EXPECT_TRUE(log_.has_check("host is NULL or \"\""));
  EXPECT_FALSE(static_cast<bool>(client));
  sim_.require_access_key("alert-key");
  ASSERT_TRUE(client.init("127.0.0.1", sim_.port(), false, "alert-key", 0, 5));
  EXPECT_TRUE(static_cast<bool>(client));

  long start = 100, end = 200;
  ASSERT_TRUE(client.send_alert(42, Object{{"disk", "sda"}}, 3, "h", "", "j", "ji", &start, &end, 2));
  const auto req = sim_.requests().back();
  EXPECT_EQ(Backupd_Sim::ALERTS_PATH, req.path);
  EXPECT_EQ(parse(R"({"error_id":42,"params":{"disk":"sda"},"job_revision":3,"host_uuid":"h",
                      "resource_uuid":"","job_uuid":"j","job_instance_uuid":"ji","revision":2,
                      "extended_attrs":{"job_start_time":100,"job_end_time":200}})"),
            body_of(req));

  // Revision 1 and a lone start time are left out, as are null strings.
  ASSERT_TRUE(client.send_alert(7, Value(), 0, nullptr, nullptr, nullptr, nullptr, &start, nullptr, 1));
  EXPECT_EQ(parse(R"({"error_id":7,"params":null,"job_revision":0})"), body_of(sim_.requests().back()));
  // The key is sent (the server demands it), never logged.
  EXPECT_EQ(std::string::npos, log_.dump().find("alert-key"));
}

TEST_F(Alert_Client, reports_the_servers_answer) {
  RESTful_Alert_Client client;
  const auto send = [&client] {
    return client.send_alert(1, Value(), 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0);
  };
  EXPECT_FALSE(send());  // not initialised
  ASSERT_TRUE(client.init("127.0.0.1", sim_.port(), false, nullptr, 0, 5));
  sim_.inject(Backupd_Sim::ALERTS_PATH, Sim_Fault::reply(400, R"({"error":"bad id"})"));
  EXPECT_FALSE(send());
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to send alert to backupd, msg {\"error\":\"bad id\"}.\n")) << log_.dump();
  EXPECT_FALSE(sim_.requests().back().has_header(Backupd_Sim::ACCESS_KEY_HEADER));

  sim_.inject(Backupd_Sim::ALERTS_PATH, Sim_Fault::drop());
  EXPECT_FALSE(send());
  EXPECT_TRUE(log_.has(LM_ERROR, "Failed to send alert to backupd, msg null.\n")) << log_.dump();
}
