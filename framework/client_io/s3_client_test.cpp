#include "framework/client_io/s3_client.h"
#include "framework/client_io/s3_pool_store.h"
#include "framework/client_io/s3_transfers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>

#include "tests/support/http_test_server.h"

namespace {

const char DATA_ETAG[] = "\"8d777f385d3dfec8815d20f7496026dc\"";  // MD5 of "data"

class S3_Client_Test : public ::testing::Test {
 protected:
  void SetUp() override {
    server.on("PUT", "/b/flaky", [this](const httplib::Request&, httplib::Response& res) {
      res.status = ++flaky_calls <= 2 ? 503 : 200;
      res.set_header("ETag", DATA_ETAG);
    });
    server.on("PUT", "/b/denied", [](const httplib::Request&, httplib::Response& res) {
      res.status = 403;
      res.set_content("<Error><Code>AccessDenied</Code></Error>", "application/xml");
    });
    server.on("PUT", "/b/down", [](const httplib::Request&, httplib::Response& res) {
      res.status = 500;
      res.set_content("<Error><Code>InternalError</Code></Error>", "application/xml");
    });
    // A completion can fail inside a 200 answer.
    server.on("POST", "/b/late", [this](const httplib::Request&, httplib::Response& res) {
      res.set_content(++late_calls == 1 ? "<Error><Code>InternalError</Code></Error>"
                                        : "<CompleteMultipartUploadResult/>",
                      "application/xml");
    });
    server.on("GET", "/b", [](const httplib::Request& req, httplib::Response& res) {
      if (!req.has_param("continuation-token")) {
        res.set_content("<ListBucketResult><IsTruncated>true</IsTruncated>"
                        "<Contents><Key>pool/&#65;&lt;</Key></Contents>"
                        "<NextContinuationToken>t/2=</NextContinuationToken></ListBucketResult>",
                        "application/xml");
      } else {
        res.set_content("<ListBucketResult><IsTruncated>false</IsTruncated>"
                        "<Contents><Key>pool/a&amp;b</Key></Contents></ListBucketResult>",
                        "application/xml");
      }
    });
    ASSERT_TRUE(server.start());
    Client_IO_Base::Options o;
    o.access_key = "AKIDTEST";
    o.secret_key = "s3cr3t-never-sent";
    o.retry_count = 3;
    o.retry_backoff_ms = 1;
    std::string error;
    ASSERT_TRUE(make_s3_endpoint("s3://127.0.0.1:" + std::to_string(server.port()) + "/b/pool", o,
                                 endpoint, error)) << error;
  }

  au_test::HTTP_Test_Server server;
  S3_Endpoint endpoint;
  std::atomic<int> flaky_calls{0}, late_calls{0};
};

TEST_F(S3_Client_Test, retries_only_server_errors_and_signs_without_sending_the_secret) {
  endpoint.prefix.clear();
  S3_Client client(endpoint);
  const struct {
    const char* key;
    bool ok;
    size_t attempts;
    const char* error;
  } cases[] = {
      {"flaky", true, 3, ""},
      {"denied", false, 1, "S3 PUT b/denied: HTTP 403 AccessDenied"},
      {"down", false, 4, "S3 PUT b/down: HTTP 500 InternalError"},
  };
  S3_Transfers transfers(endpoint);
  // Alone on the client's easy handle, and on the multi handle that uploads parts.
  for (const auto& c : cases) for (bool multi : {false, true}) {
    server.clear_requests();
    flaky_calls = 0;
    std::string error;
    if (multi) {
      S3_Client::Request rq;
      rq.method = "PUT";
      rq.key = c.key;
      rq.upload = "data";
      rq.upload_len = 4;
      S3_Client::Reply reply;
      EXPECT_EQ(transfers.wait(transfers.start(rq), reply, error), c.ok) << c.key;
    } else {
      EXPECT_EQ(client.put(c.key, "data", 4, error), c.ok) << c.key;
    }
    EXPECT_EQ(error, c.error);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), c.attempts) << c.key << (multi ? " on the multi handle" : "");
    for (const auto& r : requests) {
      EXPECT_EQ(r.body, "data");
      EXPECT_EQ(r.header("Authorization").rfind("AWS4-HMAC-SHA256 Credential=AKIDTEST/", 0), 0u);
      EXPECT_EQ(r.header("x-amz-content-sha256"), "UNSIGNED-PAYLOAD");
      EXPECT_EQ(r.header("Content-MD5"), multi ? "" : "jXd/OF09/siBXSD3SWAm3A==");
      for (const auto& h : r.headers) EXPECT_EQ(h.second.find("s3cr3t"), std::string::npos);
    }
  }
  std::string error;
  EXPECT_TRUE(client.complete_upload("late", "id", {"\"e1\""}, 4, error)) << error;
  EXPECT_EQ(late_calls, 2);
}

TEST_F(S3_Client_Test, listings_follow_continuation_tokens_and_decode_keys) {
  S3_Client client(endpoint);
  std::vector<std::string> names;
  std::string error;
  ASSERT_TRUE(client.list("", names, error)) << error;
  EXPECT_EQ(names, (std::vector<std::string>{"A<", "a&b"}));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].query, "list-type=2&prefix=pool%2F");
  EXPECT_EQ(requests[1].query, "continuation-token=t%2F2%3D&list-type=2&prefix=pool%2F");
}

}  // namespace

// s3s:// speaks TLS and checks the gateway's certificate: against the CA file named in
// the options it goes through, against the system's CAs it stops before sending a byte.
TEST(S3_Client_TLS, s3s_verifies_the_gateway_certificate) {
  au_test::Self_Signed_Certificate cert;
  ASSERT_TRUE(cert.ok());
  au_test::HTTP_Test_Server server(cert);
  server.on("PUT", "/b/k", [](const httplib::Request&, httplib::Response& res) { res.set_header("ETag", DATA_ETAG); });
  ASSERT_TRUE(server.start());
  for (bool with_ca : {true, false}) {
    Client_IO_Base::Options o;
    o.access_key = "AKIDTEST";
    o.secret_key = "s3cr3t";
    o.retry_count = 0;
    if (with_ca) o.extra_options["s3_ca_file"] = cert.cert_file();
    S3_Endpoint endpoint;
    std::string error;
    ASSERT_TRUE(make_s3_endpoint("s3s://127.0.0.1:" + std::to_string(server.port()) + "/b", o, endpoint, error));
    server.clear_requests();
    EXPECT_EQ(S3_Client(endpoint).put("k", "data", 4, error), with_ca) << error;
    EXPECT_EQ(server.requests().size(), with_ca ? 1u : 0u);
    if (!with_ca) {
      EXPECT_NE(error.find("certificate"), std::string::npos) << error;
    }
  }
}

// A sequential read streams one GET; a server that breaks it off mid-way must see it
// resumed from the bytes already had (or, with no retries left, the read fail and the
// next one ask again), and reads elsewhere in between must still get their own bytes.
TEST(S3_Pool_Reads, broken_streams_resume_or_fail_and_never_hand_back_wrong_bytes) {
  const size_t MiB = 1 << 20;
  std::string object(13 * MiB + 4321, '\0');
  for (size_t i = 0; i < object.size(); ++i) object[i] = static_cast<char>((i * 2654435761u) >> 13);
  std::atomic<int> streams_seen{0};
  au_test::HTTP_Test_Server server;
  server.on("GET", "/b", [](const httplib::Request&, httplib::Response&) {});
  const std::string to_end = "-" + std::to_string(object.size() - 1);
  const auto streams = [&](const std::string& range) {
    return range.size() > to_end.size() && range.compare(range.size() - to_end.size(), to_end.size(), to_end) == 0;
  };
  server.on("GET", "/b/obj", [&](const httplib::Request& req, httplib::Response& res) {
    const std::string range = req.get_header_value("Range");
    // The first and third stream GETs break off after 2 MiB: the connection is dropped.
    const int n = streams(range) ? ++streams_seen : 0;
    const size_t cut = n == 1 || n == 3 ? std::stoull(range.substr(6)) + 2 * MiB : SIZE_MAX;
    res.set_content_provider(object.size(), "application/octet-stream",
                             [&, cut](size_t offset, size_t left, httplib::DataSink& sink) {
      if (offset >= cut) return false;
      return sink.write(object.data() + offset, std::min<size_t>(64 << 10, left));
    });
  });
  ASSERT_TRUE(server.start());
  for (unsigned retries : {3u, 0u}) {
    Client_IO_Base::Options o;
    o.access_key = "AKIDTEST";
    o.secret_key = "s3cr3t";
    o.retry_count = retries;
    o.retry_backoff_ms = 1;
    std::string error;
    auto store = S3_Pool_Store::connect("s3://127.0.0.1:" + std::to_string(server.port()) + "/b", o, error);
    ASSERT_TRUE(store) << error;
    auto reader = store->open_read("obj", error);
    ASSERT_TRUE(reader) << error;
    server.clear_requests();
    streams_seen = 0;
    std::string back(object.size(), '\0');
    std::mt19937 rng(retries);
    size_t failures = 0;
    for (size_t at = 0; at < object.size();) {
      const ssize_t n = reader->pread(&back[at], MiB + 17, at, error);
      if (n < 0) {
        ++failures;
        EXPECT_NE(error.find("S3 GET b/obj"), std::string::npos) << error;
        continue;  // the same read again
      }
      ASSERT_GT(n, 0);
      at += static_cast<size_t>(n);
      if (at > 6 * MiB && at < 8 * MiB) {  // reads elsewhere, then on where the stream was
        for (int i = 0; i < 5; ++i) {
          const size_t from = rng() % (object.size() - 3 * MiB), len = 1 + rng() % (2 * MiB);
          std::string part(len, '\0');
          const ssize_t got = reader->pread(&part[0], len, from, error);
          ASSERT_EQ(got, static_cast<ssize_t>(len)) << error;
          EXPECT_TRUE(part == object.substr(from, len)) << from;
        }
      }
    }
    EXPECT_TRUE(back == object) << "retries " << retries;
    EXPECT_EQ(failures, retries ? 0u : 2u);
    std::vector<uint64_t> starts;  // of stream GETs: a break resumes, never restarts
    for (const auto& r : server.requests()) {
      if (r.method == "GET" && streams(r.header("Range"))) starts.push_back(std::stoull(r.header("Range").substr(6)));
    }
    ASSERT_EQ(starts.size(), 4u) << "retries " << retries;
    EXPECT_TRUE(std::is_sorted(starts.begin(), starts.end()));
    EXPECT_EQ(std::count(starts.begin(), starts.end(), 0u), 1);
  }
}
