#include "framework/http/json_restful_client.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "framework/http/host_manager.h"
#include "framework/http/http_header_ids.h"
#include "framework/http/http_options.h"
#include "framework/http/upstream_json_restful_client.h"
#include "framework/json/reader.h"
#include "tests/support/http_test_server.h"
#include "tests/support/log_capture.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

void reply_json(httplib::Response& res, const std::string& text, int status = 200) {
  res.status = status;
  res.set_content(text, "application/json");
}

class JSON_RESTful_Client_Test : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.on("GET", "/json", [](const httplib::Request&, httplib::Response& res) {
      reply_json(res, R"({"a":1,"s":"x"})");
    });
    server_.on("GET", "/html", [](const httplib::Request&, httplib::Response& res) {
      res.set_content("<html>oops</html>", "text/html");
    });
    server_.on("GET", "/plain-json", [](const httplib::Request&, httplib::Response& res) {
      res.set_content("[1,2]", "text/plain");
    });
    server_.on("GET", "/empty", [](const httplib::Request&, httplib::Response&) {});
    server_.on("DELETE", "/item", [](const httplib::Request&, httplib::Response& res) {
      res.status = 204;
    });
    server_.on("GET", "/missing", [](const httplib::Request&, httplib::Response& res) {
      reply_json(res, R"({"error":{"code":1077949069}})", 404);
    });
    for (const char* method : {"POST", "PUT", "DELETE"})
      server_.on(method, "/echo", [](const httplib::Request& req, httplib::Response& res) {
        reply_json(res, req.body.empty() ? "null" : req.body);
      });
    server_.on("GET", "/flaky", [this](const httplib::Request&, httplib::Response& res) {
      res.status = failures_left_-- > 0 ? 500 : 200;
      res.set_content("{}", "application/json");
    });
    server_.on("POST", "/d2/r/v2/alerts", [](const httplib::Request&, httplib::Response&) {});
    server_.on("GET", "/big", [](const httplib::Request&, httplib::Response& res) {
      res.set_content(std::string(2u << 20, ' ') + "{}", "application/json");
    });
    ASSERT_TRUE(server_.start());
  }

  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(server_.port()) + path;
  }

  au_test::HTTP_Test_Server server_;
  std::atomic<int> failures_left_{0};
};

TEST_F(JSON_RESTful_Client_Test, json_in_and_out_on_one_connection) {
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false, true, 120, 120, 120, 5);
  EXPECT_TRUE(client.set_header(HTTP_HEADER_ACCESS_KEY, "key-1"));
  EXPECT_TRUE(client.set_header(49, "key-2"));
  Value reply;
  ASSERT_TRUE(client.get("/json", &reply));
  EXPECT_EQ(1, reply.get_obj().at("a").get_int());

  // The routes answer only their own method: a wrong one would fail the call.
  const Value body(Object{{"name", "vm1"}, {"size", uint64_t(1) << 40}});
  HTTP_Request post(HTTP_POST, "/echo", true), put(HTTP_PUT, "/echo", false), del(HTTP_DELETE, "/echo", false);
  HTTP_Response resp;
  ASSERT_TRUE(client.post(post, &body, resp, &reply));
  EXPECT_EQ(body, reply);
  ASSERT_TRUE(client.put(put, &body, &reply));
  EXPECT_EQ(body, reply);
  ASSERT_TRUE(client.del(del, &body, &reply));
  EXPECT_EQ(body, reply);
  ASSERT_TRUE(client.post("/echo?x=1", &body, nullptr));
  // No content reads as null; a request's own method is replaced by the call's.
  HTTP_Request item(HTTP_GET, "/item", false);
  ASSERT_TRUE(client.del(item, nullptr, &reply));
  EXPECT_TRUE(reply.is_null());

  const auto seen = server_.requests();
  ASSERT_EQ(6u, seen.size());
  EXPECT_EQ(1u, server_.connections());
  EXPECT_EQ("application/json", seen[0].header("Accept"));
  EXPECT_FALSE(seen[0].has_header("Content-Type"));
  EXPECT_EQ("key-2", seen[0].header("X-Access-Key"));
  EXPECT_EQ(1u, seen[5].header_count("X-Access-Key"));
  EXPECT_EQ("application/json", seen[1].header("Content-Type"));
  Value sent;
  ASSERT_TRUE(json_spirit::read(seen[1].body, sent));
  EXPECT_EQ(body, sent);
  EXPECT_EQ("/echo?x=1", seen[4].target);
  EXPECT_TRUE(seen[5].body.empty());
}

TEST_F(JSON_RESTful_Client_Test, failures_are_false_with_one_error_line) {
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false);
  au_test::Log_Capture logs;
  Value reply;
  HTTP_Response resp;

  // A non-2xx status fails, but the server's JSON explanation is still there.
  HTTP_Request missing(HTTP_GET, "/missing", true);
  EXPECT_FALSE(client.get(missing, resp, &reply));
  EXPECT_EQ(404, resp.status());
  EXPECT_EQ(1077949069, reply.get_obj().at("error").get_obj().at("code").get_int64());
  EXPECT_TRUE(logs.has(LM_ERROR, "HTTP request 'GET " + url("/missing") + "' failed: status 404.\n"))
      << logs.dump();

  logs.clear();
  reply = Value("untouched");
  EXPECT_FALSE(client.get("/html", &reply));
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_EQ(LM_ERROR, logs.records()[0].priority);
  EXPECT_EQ(0u, logs.records()[0].text.find("HTTP request 'GET " + url("/html") +
                                             "' failed: the reply is not JSON: "))
      << logs.dump();
  EXPECT_EQ(Value("untouched"), reply);

  // The media type is not trusted either way: the body decides.
  logs.clear();
  ASSERT_TRUE(client.get("/plain-json", &reply));
  EXPECT_EQ(json_spirit::array_type, reply.type());
  ASSERT_TRUE(client.get("/empty", &reply));
  EXPECT_TRUE(reply.is_null());
  // Without a reply value wanted, a non-JSON body is no failure.
  ASSERT_TRUE(client.get("/html", nullptr));

  client.max_reply_bytes(1u << 20);
  EXPECT_FALSE(client.get("/big", &reply));
  EXPECT_TRUE(logs.has(LM_ERROR, "HTTP request 'GET " + url("/big") +
                                     "' failed: the reply is larger than 1048576 bytes.\n"))
      << logs.dump();

  const unsigned short nobody = au_test::unused_local_port();
  client.reset("127.0.0.1", nobody, false);
  EXPECT_FALSE(client.get("/json", &reply));
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "HTTP request 'GET http://127.0.0.1:" +
                                              std::to_string(nobody) + "/json' failed: "))
      << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "(curl code 7).\n"));

  EXPECT_FALSE(client.get(static_cast<const char*>(nullptr), &reply));
  EXPECT_FALSE(client.del(""));
  EXPECT_TRUE(logs.has_check("path is NULL or \"\"")) << logs.dump();
}

TEST_F(JSON_RESTful_Client_Test, retries_server_errors_within_count_and_time) {
  // How a retry is counted is http_send_with_retries' business; here the client's knobs
  // reach it and an exhausted call logs once.
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false);
  client.retry_interval(1);
  Value reply;
  au_test::Log_Capture logs;
  failures_left_ = 1000;
  client.retries(2);
  EXPECT_FALSE(client.get("/flaky", &reply));
  EXPECT_EQ(3u, server_.requests().size());
  EXPECT_EQ(1u, logs.count(LM_ERROR, "HTTP request 'GET " + url("/flaky") + "' failed: status 500.\n"));
  EXPECT_EQ(1u, logs.records().size()) << logs.dump();

  // The time budget ends the retries long before the count would.
  server_.clear_requests();
  client.retries(1000);
  client.retry_interval(400);
  client.retry_timeout(1);
  EXPECT_FALSE(client.get("/flaky", &reply));
  EXPECT_LE(server_.requests().size(), 2u);
}

TEST_F(JSON_RESTful_Client_Test, generator_bodies_stream_chunked_or_go_whole) {
  const int rows = 20000;
  int next = 0;
  json_spirit::JSON_Row_Generator gen(
      json_spirit::JSON_Row_Generator::array_rows,
      [&next](std::string&, Value& row) {
        if (next == rows) return 0;
        row = Object{{"i", next++}, {"name", "row with \"quotes\""}};
        return 1;
      },
      [&next] {
        next = 0;
        return true;
      });
  gen.envelope(Object{{"catalog", "c1"}}, "rows");
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false);
  EXPECT_TRUE(client.streaming());
  HTTP_Request req(HTTP_POST, "/echo");
  Value reply;
  ASSERT_TRUE(client.post(req, gen, &reply));
  EXPECT_EQ(static_cast<size_t>(rows), reply.get_obj().at("rows").get_array().size());
  EXPECT_EQ(rows - 1, reply.get_obj().at("rows").get_array().back().get_obj().at("i").get_int());

  json_spirit::JSON_Text_Generator small(Value(Object{{"k", "v"}}));
  client.streaming(false);
  ASSERT_TRUE(client.post(req, small, &reply));
  EXPECT_EQ(Value(Object{{"k", "v"}}), reply);

  const auto seen = server_.requests();
  ASSERT_EQ(2u, seen.size());
  EXPECT_EQ("chunked", seen[0].header("Transfer-Encoding"));
  EXPECT_FALSE(seen[0].has_header("Content-Length"));
  EXPECT_FALSE(seen[1].has_header("Transfer-Encoding"));
  EXPECT_EQ(std::to_string(seen[1].body.size()), seen[1].header("Content-Length"));

  // A generator that fails midway: nothing half-sent is taken for success.
  au_test::Log_Capture logs;
  json_spirit::JSON_Row_Generator broken(json_spirit::JSON_Row_Generator::array_rows,
                                         [n = 0](std::string&, Value& row) mutable {
                                           row = n;
                                           return ++n < 1000 ? 1 : -1;
                                         });
  for (bool streaming : {true, false}) {
    client.streaming(streaming);
    EXPECT_FALSE(client.post(req, broken, &reply));
  }
  EXPECT_EQ(2u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "HTTP request 'POST " + url("/echo") +
                                              "' failed: the JSON body could not be produced: "))
      << logs.dump();
}

TEST_F(JSON_RESTful_Client_Test, upstream_client_follows_the_process_settings) {
  au_test::HTTP_Test_Server second;
  second.on("POST", "/d2/r/v2/alerts", [](const httplib::Request&, httplib::Response& res) {
    reply_json(res, R"({"id":2})");
  });
  ASSERT_TRUE(second.start());

  HTTP_Options::instance()->backupd({"127.0.0.1", server_.port(), false});
  Host_Manager::instance()->access_key("ak-123");
  Upstream_JSON_RESTful_Client* client = Upstream_JSON_RESTful_Client::instance();
  const Value alert(Object{{"error_id", 7}});
  Value reply;
  ASSERT_TRUE(client->post("/d2/r/v2/alerts", &alert, nullptr));
  ASSERT_EQ(1u, server_.requests().size());
  EXPECT_EQ("ak-123", server_.requests()[0].header("X-Access-Key"));

  // Moved and without a key: the next call follows.
  HTTP_Options::instance()->backupd({"127.0.0.1", second.port(), false});
  Host_Manager::instance()->access_key("");
  ASSERT_TRUE(client->post("/d2/r/v2/alerts", &alert, &reply));
  EXPECT_EQ(2, reply.get_obj().at("id").get_int());
  ASSERT_EQ(1u, second.requests().size());
  EXPECT_FALSE(second.requests()[0].has_header("X-Access-Key"));

  // A client of its own, made with flags, follows the same settings.
  Upstream_JSON_RESTful_Client own(HTTP_NO_KEEP_ALIVE);
  ASSERT_TRUE(own.post("/d2/r/v2/alerts", &alert, nullptr));
  ASSERT_TRUE(own.post("/d2/r/v2/alerts", &alert, nullptr));
  EXPECT_FALSE(own.settings().keep_alive);
  EXPECT_EQ(3u, second.connections());
  // The process-wide client outlives this test's servers.
  client->reset();
  Host_Manager::instance()->access_key("");
  HTTP_Options::instance()->backupd({"127.0.0.1", HTTP_Options::DEFAULT_BACKUPD_PORT, false});
}

}  // namespace
