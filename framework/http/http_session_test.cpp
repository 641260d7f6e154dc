#include "framework/http/http_session.h"

#include <ace/ACE.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <tuple>

#include "framework/http/http_header_ids.h"
#include "framework/http/http_retry.h"
#include "tests/support/http_test_server.h"
#include "tests/support/log_capture.h"

namespace {

using au_test::HTTP_Test_Server;

HTTP_Connection_Settings local(unsigned short port, bool ssl = false) {
  HTTP_Connection_Settings s;
  s.host = "127.0.0.1";
  s.port = port;
  s.ssl = ssl;
  s.connect_timeout = 5;
  s.idle_timeout = 5;
  return s;
}

// Serves `size` bytes of 'x' in 64 KiB pieces, with or without a Content-Length.
void serve_bytes(httplib::Response& res, std::size_t size, bool with_length) {
  auto provide = [size](std::size_t offset, httplib::DataSink& sink) {
    static const std::string block(64 * 1024, 'x');
    if (offset >= size) sink.done();
    return offset >= size || sink.write(block.data(), std::min(block.size(), size - offset));
  };
  if (!with_length) return res.set_chunked_content_provider("application/octet-stream", provide);
  res.set_content_provider(size, "application/octet-stream",
                           [provide](std::size_t offset, std::size_t, httplib::DataSink& sink) { return provide(offset, sink); });
}

class HTTP_Session_Test : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.on("GET", "/hello", [](const httplib::Request&, httplib::Response& res) {
      res.set_header("Set-Cookie", "session=abc; path=/");
      res.set_header("Set-Cookie", "lang=en");
      res.set_content("hi", "text/plain");
    });
    for (const char* method : {"POST", "PUT", "DELETE"})
      server_.on(method, "/echo", [](const httplib::Request& req, httplib::Response& res) {
        res.set_content(req.body, "text/plain");
      });
    for (const char* method : {"GET", "POST"}) {
      server_.on(method, "/flaky", [this](const httplib::Request&, httplib::Response& res) {
        res.status = failures_left_-- > 0 ? 503 : 200;
      });
    }
    server_.on("GET", "/forbidden", [](const httplib::Request&, httplib::Response& res) {
      res.status = 403;
    });
    // /bytes/<n> with a Content-Length, /bytes/<n>/chunked without one.
    server_.on("GET", R"(/bytes/\d+(/chunked)?)", [](const httplib::Request& req, httplib::Response& res) {
      const std::string rest = req.path.substr(std::strlen("/bytes/"));
      serve_bytes(res, std::stoul(rest), rest.find("/chunked") == std::string::npos);
    });
    server_.on("GET", "/stall-body", [this](const httplib::Request&, httplib::Response& res) {
      res.set_chunked_content_provider("text/plain", [this](std::size_t, httplib::DataSink& sink) {
        sink.write("partial", 7);
        server_.wait_until_stopping();
        return false;
      });
    });
    ASSERT_TRUE(server_.start());
  }

  bool send(HTTP_Session& s, const HTTP_Request& req, HTTP_Response& resp,
            const HTTP_Request_Body& body = HTTP_Request_Body()) {
    return s.send(req, HTTP_Headers(), body, resp, error_);
  }

  HTTP_Test_Server server_;
  std::atomic<int> failures_left_{0};
  HTTP_Transport_Error error_;
};

TEST_F(HTTP_Session_Test, keeps_one_connection_alive_for_consecutive_requests) {
  HTTP_Session session(local(server_.port()));
  HTTP_Response resp;
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(send(session, HTTP_Request(HTTP_GET, "/hello"), resp)) << error_.message;
    EXPECT_EQ(200, resp.status());
    EXPECT_EQ("hi", resp.body());
  }
  EXPECT_EQ(0, session.last_new_connections());
  EXPECT_EQ(1u, server_.connections());
  // Both Set-Cookie fields arrive, in order.
  ASSERT_EQ(2u, std::count_if(resp.headers().begin(), resp.headers().end(),
                              [](const HTTP_Headers::Field& f) { return f.first == "Set-Cookie"; }));
  EXPECT_STREQ("session=abc; path=/", resp.headers().get("set-cookie"));

  HTTP_Connection_Settings no_reuse = local(server_.port());
  no_reuse.keep_alive = false;
  HTTP_Session closing(no_reuse);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(send(closing, HTTP_Request(HTTP_GET, "/hello"), resp));
  EXPECT_EQ(4u, server_.connections());
}

TEST_F(HTTP_Session_Test, methods_bodies_and_header_precedence) {
  HTTP_Session session(local(server_.port()));
  session.headers().put(HTTP_HEADER_ACCESS_KEY, "session-key");
  session.headers().put("X-Layer", "session");
  HTTP_Headers extra;
  extra.put("X-Layer", "extra");
  extra.put("Content-Type", "application/json");
  HTTP_Request post(HTTP_POST, "/echo?a=1&b=%2F", true);
  post.headers().put("content-type", "text/x-mine");
  const std::string text = "{\"k\": \"v\"}";
  HTTP_Response resp;
  ASSERT_TRUE(session.send(post, extra, HTTP_Request_Body::text(text), resp, error_));
  EXPECT_EQ(text, resp.body());

  ASSERT_TRUE(send(session, HTTP_Request(HTTP_PUT, "/echo"), resp));
  ASSERT_TRUE(send(session, HTTP_Request(HTTP_DELETE, "/echo"), resp, HTTP_Request_Body::text(text)));
  EXPECT_EQ(text, resp.body());
  ASSERT_TRUE(send(session, HTTP_Request(HTTP_HEAD, "/hello"), resp));
  EXPECT_EQ(200, resp.status());
  EXPECT_TRUE(resp.body().empty());

  const auto seen = server_.requests();
  ASSERT_EQ(4u, seen.size());
  EXPECT_EQ("a=1&b=%2F", seen[0].query);
  EXPECT_EQ("session-key", seen[0].header("X-Access-Key"));
  EXPECT_EQ("extra", seen[0].header("X-Layer"));
  EXPECT_EQ(1u, seen[0].header_count("X-Layer"));
  EXPECT_EQ("text/x-mine", seen[0].header("Content-Type"));
  EXPECT_EQ(1u, seen[0].header_count("Content-Type"));
  EXPECT_FALSE(seen[0].has_header("Expect"));
  EXPECT_EQ("PUT", seen[1].method);
  EXPECT_EQ("0", seen[1].header("Content-Length"));
  EXPECT_EQ("DELETE", seen[2].method);
  EXPECT_EQ(text, seen[2].body);
  EXPECT_EQ("HEAD", seen[3].method);

  // Nothing is sent for a method the library does not know or a relative path.
  EXPECT_FALSE(send(session, HTTP_Request(8, "/hello"), resp));
  EXPECT_EQ("unsupported method", error_.message);
  EXPECT_FALSE(send(session, HTTP_Request(HTTP_GET, "hello"), resp));
  EXPECT_FALSE(error_.retryable);
  // Nor for a path that would smuggle a header line into the request.
  EXPECT_FALSE(send(session, HTTP_Request(HTTP_GET, "/hello\r\nX-Evil: 1", false), resp));
  EXPECT_FALSE(send(session, HTTP_Request(HTTP_GET, "/hello?a=\nX-Evil: 1", true), resp));
  EXPECT_NE(std::string::npos, error_.message.find("(curl code 3)")) << error_.message;
  EXPECT_EQ(4u, server_.requests().size());
}

class Counting_Source : public HTTP_Body_Source {
 public:
  Counting_Source(int pieces, bool fail_at_end) : pieces_(pieces), fail_at_end_(fail_at_end) {}
  long read(char* buf, std::size_t size) override {
    if (sent_ == pieces_) return fail_at_end_ ? -1 : 0;
    const std::string piece = "[" + std::to_string(sent_++) + "]";
    if (piece.size() > size) return -1;
    std::memcpy(buf, piece.data(), piece.size());
    return static_cast<long>(piece.size());
  }
  bool rewind() override {
    sent_ = 0;
    ++rewinds;
    return true;
  }
  int rewinds = 0;

 private:
  int pieces_;
  bool fail_at_end_;
  int sent_ = 0;
};

TEST_F(HTTP_Session_Test, streamed_bodies_go_out_chunked_and_a_failing_source_aborts) {
  HTTP_Session session(local(server_.port()));
  Counting_Source source(3, false);
  HTTP_Response resp;
  ASSERT_TRUE(send(session, HTTP_Request(HTTP_POST, "/echo"), resp, HTTP_Request_Body::stream(source)))
      << error_.message;
  EXPECT_EQ("[0][1][2]", resp.body());
  ASSERT_EQ(1u, server_.requests().size());
  EXPECT_EQ("chunked", server_.requests()[0].header("Transfer-Encoding"));

  Counting_Source failing(2, true);
  EXPECT_FALSE(send(session, HTTP_Request(HTTP_POST, "/echo"), resp, HTTP_Request_Body::stream(failing)));
  EXPECT_EQ("the request body could not be produced", error_.message);
  EXPECT_FALSE(error_.retryable);
}

TEST_F(HTTP_Session_Test, replies_beyond_the_cap_fail_cleanly) {
  HTTP_Connection_Settings s = local(server_.port());
  s.max_reply_bytes = 1u << 20;
  HTTP_Session session(s);
  HTTP_Response resp;
  for (const char* path : {"/bytes/83886080", "/bytes/83886080/chunked"}) {
    EXPECT_FALSE(send(session, HTTP_Request(HTTP_GET, path), resp)) << path;
    EXPECT_EQ("the reply is larger than 1048576 bytes", error_.message) << path;
    EXPECT_FALSE(error_.retryable);
    EXPECT_TRUE(resp.body().empty());
  }
  // Exactly at the cap is still fine, and the session still works afterwards.
  ASSERT_TRUE(send(session, HTTP_Request(HTTP_GET, "/bytes/1048576/chunked"), resp)) << error_.message;
  EXPECT_EQ(1u << 20, resp.body().size());
}

TEST_F(HTTP_Session_Test, stalls_end_in_retryable_errors) {
  au_test::Stalling_Listener silent;
  ASSERT_TRUE(silent.ok());
  HTTP_Connection_Settings s = local(silent.port());
  s.idle_timeout = 1;
  HTTP_Session stalled(s);
  HTTP_Response resp;
  EXPECT_FALSE(send(stalled, HTTP_Request(HTTP_GET, "/"), resp));
  EXPECT_TRUE(error_.retryable);
  EXPECT_NE(std::string::npos, error_.message.find("(curl code 28)")) << error_.message;

  // Headers arrive, then the body stops flowing: the total limit ends it.
  s = local(server_.port());
  s.idle_timeout = 0;
  s.transfer_timeout = 1;
  HTTP_Session half(s);
  EXPECT_FALSE(send(half, HTTP_Request(HTTP_GET, "/stall-body"), resp));
  EXPECT_TRUE(error_.retryable);
  EXPECT_NE(std::string::npos, error_.message.find("(curl code 28)")) << error_.message;
  // A refused connection is retried: see retries_only_what_may_succeed_and_stay_bounded.
}

TEST_F(HTTP_Session_Test, retries_only_what_may_succeed_and_stay_bounded) {
  HTTP_Session session(local(server_.port()));
  HTTP_Retry_Policy policy;
  policy.interval_ms = 1;
  HTTP_Response resp;
  std::string error;
  // {method, failures before success, retries, path, final status, requests made}; a POST
  // that reached the server is never sent twice.
  const std::tuple<HTTP_Method, int, int, const char*, int, size_t> cases[] = {
      {HTTP_GET, 2, 3, "/flaky", 200, 3},
      {HTTP_GET, 10, 1, "/flaky", 503, 2},
      {HTTP_GET, 0, 3, "/forbidden", 403, 1},
      {HTTP_POST, 2, 3, "/flaky", 503, 1}};
  for (const auto& [method, failures, retries, path, status, requests] : cases) {
    server_.clear_requests();
    failures_left_ = failures;
    policy.retries = retries;
    ASSERT_TRUE(http_send_with_retries(session, HTTP_Request(method, path), HTTP_Headers(),
                                       HTTP_Request_Body(), resp, policy, error));
    EXPECT_EQ(status, resp.status()) << path;
    EXPECT_EQ(requests, server_.requests().size()) << path << " " << retries;
  }

  // Unreachable: every retry is spent, even for a POST (it never left), a streamed body
  // starting over each time.
  Counting_Source source(2, false);
  HTTP_Session refused(local(au_test::unused_local_port()));
  EXPECT_FALSE(http_send_with_retries(refused, HTTP_Request(HTTP_POST, "/x"), HTTP_Headers(),
                                      HTTP_Request_Body::stream(source), resp, policy, error));
  EXPECT_NE(std::string::npos, error.find("(curl code 7)")) << error;
  EXPECT_EQ(3, source.rewinds);
}

TEST(HTTP_Session_TLS, verifies_certificates_unless_told_not_to) {
  au_test::Self_Signed_Certificate cert;
  ASSERT_TRUE(cert.ok());
  HTTP_Test_Server server(cert);
  server.on("GET", "/hello", [](const httplib::Request&, httplib::Response& res) {
    res.set_content("secure", "text/plain");
  });
  ASSERT_TRUE(server.start());
  HTTP_Response resp;
  HTTP_Transport_Error error;
  const auto get = [&](const HTTP_Connection_Settings& s) {
    HTTP_Session session(s);
    return session.send(HTTP_Request(HTTP_GET, "/hello"), HTTP_Headers(), HTTP_Request_Body(),
                        resp, error);
  };
  EXPECT_FALSE(get(local(server.port(), true)));
  EXPECT_FALSE(error.retryable);
  EXPECT_NE(std::string::npos, error.message.find("(curl code 60)")) << error.message;

  HTTP_Connection_Settings trusting = local(server.port(), true), blind = trusting;
  trusting.ca_file = cert.cert_file();
  blind.verify_peer = false;
  for (const HTTP_Connection_Settings& s : {trusting, blind}) {
    resp.clear();
    ASSERT_TRUE(get(s)) << error.message;
    EXPECT_EQ("secure", resp.body());
  }
}

TEST_F(HTTP_Session_Test, debug_traces_never_show_secrets) {
  HTTP_Session session(local(server_.port()));
  session.headers().put(HTTP_HEADER_ACCESS_KEY, "ak-SECRET-1");
  HTTP_Request req(HTTP_GET, "/hello");
  req.headers().put("Cookie", "session=SECRET-2");
  req.headers().put("iBaseToken", "SECRET-3");
  req.headers().put("Authorization", "Bearer SECRET-4");
  req.headers().put("Accept", "text/plain");
  au_test::Log_Capture logs;
  ACE::debug(true);
  HTTP_Response resp;
  const bool sent = send(session, req, resp);
  ACE::debug(false);
  ASSERT_TRUE(sent);
  EXPECT_TRUE(logs.has_fragment(
      LM_DEBUG, "called HTTP_Session::send(GET http://127.0.0.1:" + std::to_string(server_.port()) +
                    "/hello), headers: X-Access-Key: <redacted>, Cookie: <redacted>, iBaseToken: "
                    "<redacted>, Authorization: <redacted>, Accept: text/plain\n"))
      << logs.dump();
  for (const auto& r : logs.records()) EXPECT_EQ(std::string::npos, r.text.find("SECRET")) << r.text;
  // The server did get them.
  EXPECT_EQ("ak-SECRET-1", server_.requests().at(0).header("X-Access-Key"));
}

}  // namespace
