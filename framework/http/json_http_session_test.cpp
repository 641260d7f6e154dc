#include "framework/http/json_http_session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "framework/http/host_manager.h"
#include "framework/http/http_header_ids.h"
#include "framework/http/http_options.h"
#include "framework/http/http_session_factory.h"
#include "tests/support/http_test_server.h"
#include "tests/support/log_capture.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;

class JSON_HTTP_Session_Test : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.on("GET", "/d2/r/pools", [this](const httplib::Request&, httplib::Response& res) {
      res.status = busy_left_-- > 0 ? 503 : 200;
      res.set_content(R"({"pools":["p1"]})", "application/json");
    });
    server_.on("POST", "/d2/r/pools", [](const httplib::Request& req, httplib::Response& res) {
      res.status = 201;
      res.set_content(req.body, "application/json");
    });
    ASSERT_TRUE(server_.start());
  }

  au_test::HTTP_Test_Server server_;
  std::atomic<int> busy_left_{0};
};

TEST_F(JSON_HTTP_Session_Test, sessions_from_the_factory_carry_json_with_attempts) {
  HTTP_Session_Ptr session = HTTP_Session_Factory::create(
      "127.0.0.1", server_.port(), false, nullptr, 3, nullptr, false, 120, 120, 120, 0);
  ASSERT_TRUE(session.get() != nullptr);
  session->headers().put(HTTP_HEADER_ACCESS_KEY, "ak", true);

  JSON_HTTP_Session json(session, 5, 300);
  json.retry_interval(1);
  busy_left_ = 4;
  HTTP_Request get(HTTP_GET, "/d2/r/pools", true);
  HTTP_Response resp;
  Value reply;
  ASSERT_TRUE(json.get(get, resp, reply));
  EXPECT_EQ(200, resp.status());
  EXPECT_EQ("p1", reply.get_obj().at("pools").get_array().at(0).get_str());
  EXPECT_EQ(5u, server_.requests().size());

  // Any 2xx is success here; callers that want exactly 200 look at the status.
  const Value body(Object{{"pool_uuid", "u1"}});
  HTTP_Request post(HTTP_POST, "/d2/r/pools", true);
  ASSERT_TRUE(json.post(post, &body, resp, &reply));
  EXPECT_EQ(201, resp.status());
  EXPECT_EQ(body, reply);
  EXPECT_EQ("ak", server_.requests().back().header("X-Access-Key"));
  EXPECT_EQ(1u, server_.connections());
}

TEST_F(JSON_HTTP_Session_Test, the_common_factory_reaches_backupd_with_the_host_key) {
  HTTP_Options::instance()->backupd({"127.0.0.1", server_.port(), false});
  Host_Manager::instance()->access_key("host-key");
  HTTP_Session_Ptr session = Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::Backupd,
                                                                 nullptr, 0);
  Host_Manager::instance()->access_key("");
  HTTP_Options::instance()->backupd({"127.0.0.1", HTTP_Options::DEFAULT_BACKUPD_PORT, false});
  ASSERT_TRUE(session.get() != nullptr);
  JSON_HTTP_Session json(session, 1, 0);
  HTTP_Request get(HTTP_GET, "/d2/r/pools", true);
  HTTP_Response resp;
  Value reply;
  ASSERT_TRUE(json.get(get, resp, reply));
  EXPECT_EQ("host-key", server_.requests().at(0).header("X-Access-Key"));

  HTTP_Session_Factory::Create_Params params;
  params.host = "127.0.0.1";
  HTTP_Session_Ptr custom = Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::Custom, &params,
                                                                HTTP_NO_KEEP_ALIVE | HTTP_NO_VERIFY_PEER);
  ASSERT_TRUE(custom.get() != nullptr);
  EXPECT_FALSE(custom->settings().keep_alive || custom->settings().verify_peer);
}

TEST(HTTP_Session_Factory, refusals_give_no_session_and_one_line) {
  au_test::Log_Capture logs;
  EXPECT_EQ(nullptr, HTTP_Session_Factory::create(nullptr, 80, false, nullptr, 3, nullptr, false, 1, 1, 1, 0).get());
  EXPECT_TRUE(logs.has_check("host is NULL or \"\"")) << logs.dump();
  int not_a_context = 0;
  EXPECT_EQ(nullptr, HTTP_Session_Factory::create("127.0.0.1", 80, true, nullptr, 3,
                                                  reinterpret_cast<ACE_SSL_Context*>(&not_a_context), false, 1, 1, 1, 0)
                         .get());
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Failed to create HTTP session to 127.0.0.1:80: an ACE_SSL_Context is not "
                       "supported, pass a CA file instead.\n"));
  EXPECT_EQ(nullptr, Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::Custom, nullptr, 0).get());
  EXPECT_TRUE(logs.has_check("params is NULL"));
  EXPECT_EQ(nullptr, Common_HTTP_Session_Factory::create(static_cast<Common_HTTP_Session_Factory::Type>(9), nullptr, 0).get());
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to create HTTP session: unknown session type 9.\n"));
  EXPECT_EQ(4u, logs.records().size()) << logs.dump();

  JSON_HTTP_Session empty;
  HTTP_Request req(HTTP_GET, "/x");
  HTTP_Response resp;
  Value reply;
  EXPECT_FALSE(empty.get(req, resp, reply));
  EXPECT_TRUE(logs.has(LM_ERROR, "No HTTP session to send 'GET /x' on.\n"));
}

TEST(HTTP_Session_Factory, connect_attempts_ride_out_a_server_that_comes_up_late) {
  // Nothing listens at first; the server appears once a first attempt has been refused.
  au_test::Reserved_Port reserved;
  const unsigned short port = reserved.port();
  HTTP_Session_Ptr patient =
      HTTP_Session_Factory::create("127.0.0.1", port, false, nullptr, 30, nullptr, false, 5, 5, 5, 0);
  HTTP_Response resp;
  HTTP_Transport_Error error;
  httplib::Server late;
  late.Get("/", [](const httplib::Request&, httplib::Response& res) { res.set_content("up", "text/plain"); });
  std::thread starter([&late, &reserved, port] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    reserved.release();
    late.listen("127.0.0.1", port);
  });
  const bool sent =
      patient->send(HTTP_Request(HTTP_GET, "/"), HTTP_Headers(), HTTP_Request_Body(), resp, error);
  patient->disconnect();
  late.stop();
  starter.join();
  ASSERT_TRUE(sent) << error.message;
  EXPECT_EQ("up", resp.body());
}

}  // namespace
