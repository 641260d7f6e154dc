// OceanStor client sessions over real HTTP(S): login, the two auth headers, renewal
// after 180 idle seconds, logout, and how failed exchanges are reported.
#include <gtest/gtest.h>

#include "framework/json/writer.h"
#include "tests/integration/sim/oceanstor_fixture.h"
#include "tests/support/http_test_server.h"

using au_sim::OceanStor_Sim;
using au_sim::Sim_Fault;
using au_test::Log_Capture;
using au_test::Test_Client;

namespace {

class OceanStor_Session : public au_test::OceanStor_Test {
 protected:
  void SetUp() override {
    OceanStor_Test::SetUp();
    sim.add_lun("1", "lun_one", 1 << 20);
  }

  // A first request, so that the session is in place and its renewal is past.
  void log_in() {
    oceanstor::LUN lun;
    ASSERT_TRUE(client->get_lun("1", lun));
    log.clear();
  }

  Log_Capture log;
};

TEST_F(OceanStor_Session, login_then_every_request_carries_cookie_token_and_device_id) {
  ASSERT_TRUE(client->test_login());
  EXPECT_EQ(sim.device_id(), client->auth().device_id);
  EXPECT_EQ(0u, client->auth().session.find("session=ismsession=")) << "the cookie without its attributes";
  EXPECT_EQ(std::string::npos, client->auth().session.find(';'));
  const auto login = sim.requests_to("/deviceManager/rest/xxxxx/sessions");
  ASSERT_EQ(1u, login.size());
  EXPECT_FALSE(login[0].has_header("Cookie") || login[0].has_header("iBaseToken"));

  // test_login fills the session, but the idle clock starts at 0: the first request
  // renews it (logout, then login on a connection of its own).
  oceanstor::LUN lun;
  ASSERT_TRUE(client->get_lun("1", lun));
  EXPECT_EQ(2u, sim.logins());
  EXPECT_EQ(1u, sim.requests_to(rest("sessions")).size());
  EXPECT_EQ(1u, sim.live_sessions());
  const auto gets = sim.requests_to(rest("lun/1"));
  ASSERT_EQ(1u, gets.size());
  EXPECT_EQ(client->auth().session, gets[0].header("Cookie"));
  EXPECT_EQ(client->auth().token, gets[0].header("iBaseToken"));

  ASSERT_TRUE(client->logout());
  EXPECT_FALSE(static_cast<bool>(client->auth()));
  EXPECT_EQ(0u, sim.live_sessions());
  EXPECT_TRUE(client->logout()) << "nothing to do without a session";
  EXPECT_EQ(2u, sim.requests_to(rest("sessions")).size());
  expect_no_secrets(log);
}

TEST_F(OceanStor_Session, session_renewed_only_after_180_idle_seconds) {
  oceanstor::LUN lun;
  ASSERT_TRUE(client->get_lun("1", lun));
  ASSERT_EQ(1u, sim.logins());
  const std::string first_session = client->auth().session;

  client->clock += 179;
  ASSERT_TRUE(client->get_lun("1", lun));
  EXPECT_EQ(1u, sim.logins());
  EXPECT_TRUE(sim.requests_to(rest("sessions")).empty());

  client->clock += 180;
  ASSERT_TRUE(client->get_lun("1", lun));
  EXPECT_EQ(2u, sim.logins());
  const auto logouts = sim.requests_to(rest("sessions"));
  ASSERT_EQ(1u, logouts.size());
  EXPECT_EQ(first_session, logouts[0].header("Cookie"));
  EXPECT_NE(first_session, client->auth().session);
  EXPECT_EQ(1u, sim.live_sessions()) << "the old session was closed";
  const auto logins = sim.requests_to("/deviceManager/rest/xxxxx/sessions");
  ASSERT_EQ(2u, logins.size());
  EXPECT_EQ("client", logins[1].header(Test_Client::CONNECTION_MARK)) << "renewed on the client's own connection";
  EXPECT_EQ(client->auth().session, sim.requests_to(rest("lun/1")).back().header("Cookie"));
  expect_no_secrets(log);
}

TEST_F(OceanStor_Session, expired_session_and_array_errors_fail_the_request_without_renewal) {
  log_in();
  oceanstor::LUN lun;
  sim.expire_sessions();
  EXPECT_FALSE(client->get_lun("1", lun));
  EXPECT_EQ(-401, client->last_error().code);
  EXPECT_EQ(1u, sim.logins());
  const std::string url = "http://127.0.0.1:" + std::to_string(sim.port()) + rest("lun/1");
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to get OceanStor lun, method: GET, url " + url +
                                    " resp body:\n" +
                                    R"({"data":{},"error":{"code":-401,"description":"The user is offline.",)"
                                    R"("suggestion":"Log in to the system again."}})" "\n"))
      << log.dump();
  expect_no_secrets(log);
}

TEST_F(OceanStor_Session, failed_exchanges_count_only_when_the_reply_body_says_so) {
  log_in();
  oceanstor::LUN lun;
  const std::string path = rest("lun/1");

  sim.inject(path, Sim_Fault::reply(500, OceanStor_Sim::reply_text(json_spirit::Object(), 1077937880, "gone")));
  json_spirit::Value reply;
  HTTP_Request req(HTTP_GET, path.c_str(), false);
  EXPECT_FALSE(client->send_request(req, &reply));
  EXPECT_TRUE(log.has(LM_ERROR, "OceanStor request 'GET " + path +
                                    "' returns error, http status 500, error code= '1077937880', message = 'gone'.\n"))
      << log.dump();

  // Error code 0 in a failed exchange, or no reply body asked for: success.
  sim.inject(path, Sim_Fault::reply(500, OceanStor_Sim::reply_text(json_spirit::Object{{"ID", "1"}})));
  HTTP_Request again(HTTP_GET, path.c_str(), false), no_body(HTTP_GET, path.c_str(), false);
  EXPECT_TRUE(client->send_request(again, &reply));
  sim.inject(path, Sim_Fault::reply(404, "not json"));
  EXPECT_TRUE(client->send_request(no_body, nullptr));

  // Malformed JSON with a body asked for: failure with an empty error.
  log.clear();
  sim.inject(path, Sim_Fault::reply(200, "{\"data\": {\"ID\": \"1\""));
  EXPECT_FALSE(client->get_lun("1", lun));
  EXPECT_TRUE(log.has(LM_ERROR, "OceanStor request 'GET " + path +
                                    "' returns error, http status 200, error code= '0', message = ''.\n"))
      << log.dump();
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to get OceanStor lun '1' info.\n")) << log.dump();

  // A slow reply is waited for; a reply that never ends is given up.
  sim.inject(path, Sim_Fault::delay(20));
  EXPECT_TRUE(client->get_lun("1", lun));
  log.clear();
  sim.inject_endless_reply(path);
  EXPECT_FALSE(client->get_lun("1", lun));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to get OceanStor lun '1' info.\n")) << log.dump();

  // A logout whose connection breaks still counts as done.
  sim.inject(rest("sessions"), Sim_Fault::drop());
  EXPECT_TRUE(client->logout());
  EXPECT_FALSE(static_cast<bool>(client->auth()));
  expect_no_secrets(log);
}

TEST_F(OceanStor_Session, unsupported_methods_and_slow_requests_are_reported) {
  log_in();
  oceanstor::LUN lun;
  client->step = 10;  // every clock reading moves ten seconds on
  HTTP_Request head(HTTP_HEAD, rest("lun/1").c_str(), false);
  json_spirit::Value reply;
  EXPECT_FALSE(client->send_request(head, &reply));
  EXPECT_TRUE(log.has(LM_ERROR, "Unsupported HTTP method 'HEAD' for OceanStor RESTful client.\n")) << log.dump();
  EXPECT_TRUE(log.has(LM_INFO, "Slow OceanStor request 'HEAD " + rest("lun/1") + "' detected, cost 10s.\n"))
      << log.dump();

  log.clear();
  ASSERT_TRUE(client->get_lun("1", lun));
  EXPECT_TRUE(log.has(LM_INFO, "Slow OceanStor request 'GET " + rest("lun/1") + "' detected, cost 10s.\n"))
      << log.dump();
  client->step = 0;
  log.clear();
  ASSERT_TRUE(client->get_lun("1", lun));
  EXPECT_FALSE(log.has_fragment(LM_INFO, "Slow OceanStor request")) << log.dump();
}

TEST_F(OceanStor_Session, a_client_without_a_session_sends_nothing_when_it_logs_out_or_goes) {
  for (const char* password : {au_test::ARRAY_PASSWORD, "Wrong#Pass"}) {
    sim.clear_requests();
    const bool logs_in = password != std::string(au_test::ARRAY_PASSWORD);  // and fails
    {
      Test_Client idle(au_test::manager_info(sim.port(), sim.device_id(), false, password));
      if (logs_in) {
        EXPECT_FALSE(idle.test_login());
      }
      EXPECT_TRUE(idle.logout());
      EXPECT_TRUE(idle.logout());
    }
    EXPECT_EQ(logs_in ? 1u : 0u, sim.requests().size()) << password;
  }
}

TEST_F(OceanStor_Session, the_request_after_a_logout_or_a_failed_renewal_logs_in_again) {
  log_in();
  oceanstor::LUN lun;
  ASSERT_TRUE(client->logout());
  EXPECT_EQ(sim.device_id(), client->auth().device_id) << "kept for the URLs";
  ASSERT_TRUE(client->get_lun("1", lun)) << log.dump();
  EXPECT_EQ(2u, sim.logins());

  sim.inject("/deviceManager/rest/xxxxx/sessions",
             Sim_Fault::reply(200, OceanStor_Sim::reply_text(json_spirit::Object(), 1077949063, "busy")));
  client->clock += 180;
  EXPECT_FALSE(client->get_lun("1", lun));
  ASSERT_TRUE(client->get_lun("1", lun)) << log.dump();
  EXPECT_EQ(3u, sim.logins());
  EXPECT_EQ(1u, sim.live_sessions());

  // A device id learned at login outlives the session too.
  Test_Client learner(au_test::manager_info(sim.port(), ""));
  ASSERT_TRUE(learner.test_login());
  ASSERT_TRUE(learner.logout());
  EXPECT_TRUE(learner.get_lun("1", lun)) << log.dump();
  EXPECT_FALSE(log.has_check("auth_.device_id is empty")) << log.dump();
}

// An array that refuses connections: each step that gives up says so once, and a client
// that never had a session goes without a word.
TEST(OceanStor_Refused, each_step_logs_one_line_and_the_client_goes_quietly) {
  unsigned short port = 0;
  {
    OceanStor_Sim gone;
    ASSERT_TRUE(gone.start());
    port = gone.port();
  }
  Log_Capture log;
  {
    Test_Client client(au_test::manager_info(port, "D1"));
    std::vector<Block> blocks;
    unsigned long chunk_size = 0;
    EXPECT_FALSE(client.get_changed_blocks("1", nullptr, 1UL << 30, blocks, chunk_size));
  }
  const auto records = log.records();
  ASSERT_EQ(3u, records.size()) << log.dump();
  const std::string http = "HTTP request 'POST http://127.0.0.1:" + std::to_string(port) +
                           "/deviceManager/rest/xxxxx/sessions' failed: ";
  EXPECT_EQ(http, records[0].text.substr(0, http.size()));
  EXPECT_EQ("Failed to login OceanStor.\n", records[1].text);
  EXPECT_EQ("Failed to get bitmap chunk, lun id: 1.\n", records[2].text);
  for (const auto& r : records) EXPECT_EQ(LM_ERROR, r.priority) << r.text;
}

TEST_F(OceanStor_Session, wrong_password_fails_the_login_and_is_never_logged) {
  Test_Client wrong(au_test::manager_info(sim.port(), "", false, "Wrong#Pass"));
  EXPECT_FALSE(wrong.test_login());
  const std::string url = "http://127.0.0.1:" + std::to_string(sim.port()) + "/deviceManager/rest/xxxxx/sessions";
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to login OceanStor, method: POST, url " + url + " resp body:\n" +
                                    R"({"data":{},"error":{"code":1077949061,)"
                                    R"("description":"The user name or password is incorrect."}})" "\n"))
      << log.dump();
  oceanstor::LUN lun;
  EXPECT_FALSE(wrong.get_lun("1", lun));
  EXPECT_TRUE(log.has_check("auth_.device_id is empty")) << "no device id yet";
  EXPECT_EQ(std::string::npos, log.dump().find("Wrong#Pass"));
}

// Login replies the simulated array never sends: odd cookies, missing fields.
TEST(OceanStor_Login, cookie_and_reply_shapes) {
  std::string session;
  EXPECT_TRUE(oceanstor::OceanStor_Client::parse_session("a=1;;session=x; path=/", session));
  EXPECT_EQ("session=x", session);

  std::string cookie;
  std::string reply;
  au_test::HTTP_Test_Server server;
  server.on("POST", "/deviceManager/rest/xxxxx/sessions", [&](const httplib::Request&, httplib::Response& res) {
    if (!cookie.empty()) res.set_header("Set-Cookie", cookie);
    res.set_content(reply, "application/json");
  });
  ASSERT_TRUE(server.start());
  Test_Client client(au_test::manager_info(server.port(), ""));
  Log_Capture log;
  const std::string good = R"({"data":{"deviceid":"D1","iBaseToken":"T1"},"error":{"code":0,"description":"0"}})";
  reply = good;
  cookie = "path=/; session=abc";
  EXPECT_FALSE(client.test_login());
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to parse cookie: path=<redacted>; session=<redacted>.\n"))
      << log.dump();
  EXPECT_EQ(std::string::npos, log.dump().find("abc")) << "a session token reached the log";
  cookie.clear();
  EXPECT_FALSE(client.test_login());
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to parse cookie: .\n")) << log.dump();

  cookie = "session=abc; path=/";
  reply = R"({"data":{"deviceid":"D1"},"error":{"code":0,"description":"0"}})";
  EXPECT_FALSE(client.test_login());
  EXPECT_TRUE(log.has(LM_ERROR, "Unexpected exception occurred while parse auth json, JSON Pointer path "
                                "'/data/iBaseToken' not exist in JSON!.\n"))
      << log.dump();
  EXPECT_FALSE(static_cast<bool>(client.auth()));

  reply = good;
  ASSERT_TRUE(client.test_login());
  EXPECT_EQ("session=abc T1 D1", client.auth().session + " " + client.auth().token + " " + client.auth().device_id);
}

TEST(OceanStor_Login, https_with_the_array_certificate) {
  au_test::Self_Signed_Certificate cert;
  ASSERT_TRUE(cert.ok());
  OceanStor_Sim sim(cert.cert_file(), cert.key_file());
  sim.add_lun("7", "secure_lun", 1 << 20);
  ASSERT_TRUE(sim.start());
  Log_Capture log;
  {
    auto info = au_test::manager_info(sim.port(), "", true);
    info.ca_file = cert.cert_file();
    Test_Client client(info);
    oceanstor::LUN lun;
    ASSERT_TRUE(client.test_login());
    ASSERT_TRUE(client.get_lun("7", lun));
    EXPECT_EQ("secure_lun", lun.name);
    EXPECT_FALSE(client.get_lun("8", lun));
    EXPECT_TRUE(log.has_fragment(LM_ERROR, "Failed to get OceanStor lun, method: GET, url https://127.0.0.1:"))
        << log.dump();
  }
  EXPECT_EQ(0u, sim.live_sessions()) << "the client logged out when it went";
}

}  // namespace
