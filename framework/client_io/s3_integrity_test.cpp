// S3 pools against a gateway that keeps objects in memory and misbehaves on purpose:
// bytes changed on the way, a wrong ETag, a lost answer to a completion, listings that
// never end. Whatever it does, a piece is published whole and as sent, or not at all.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <atomic>
#include <map>
#include <mutex>

#include "framework/base/base64.h"
#include "framework/base/hex_string.h"
#include "framework/client_io/s3_client.h"
#include "framework/client_io/s3_pool_store.h"
#include "tests/support/http_test_server.h"

namespace {

std::string md5_of(const std::string& s) {
  unsigned char d[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_Digest(s.data(), s.size(), d, &n, EVP_md5(), nullptr);
  return std::string(reinterpret_cast<char*>(d), n);
}

void error_doc(httplib::Response& res, int status, const std::string& code) {
  res.status = status;
  res.set_content("<Error><Code>" + code + "</Code></Error>", "application/xml");
}

enum Fault {
  NONE,
  CORRUPTED_ON_THE_WAY,  // a body changes before the gateway checks it
  STORED_CORRUPTED,      // ... and the gateway takes no Content-MD5 into account
  KMS,                   // encrypted with its own keys: ETags are no MD5s
  CREATE_LOST,           // an upload is created, its answer a 500
  COMPLETE_LOST,         // the upload is completed, its answer a 500
  COMPLETE_LOST_SHORT,   // ... completed without its last part
  COMPLETE_SHORT,        // completed without its last part, and answered so
};

// Read its maps once the exchanges are over.
struct Fake_S3 {
  explicit Fake_S3(Fault f) : fault_(f) {
    server_.on("GET", "/b", [this](const httplib::Request& req, httplib::Response& res) {
      if (!req.has_param("uploads")) return;
      std::lock_guard<std::mutex> lock(m_);
      std::string doc = "<ListMultipartUploadsResult>";
      for (const auto& u : uploads_) {
        doc += "<Upload><Key>" + req.get_param_value("prefix") + "</Key><UploadId>" + u.first + "</UploadId></Upload>";
      }
      res.set_content(doc + "</ListMultipartUploadsResult>", "application/xml");
    });
    server_.on("GET", "/b/(.+)", [this](const httplib::Request& req, httplib::Response& res) {
      std::lock_guard<std::mutex> lock(m_);
      const auto it = objects_.find(req.path.substr(3));
      if (it == objects_.end()) return error_doc(res, 404, "NoSuchKey");
      res.set_content(it->second.first, "application/octet-stream");
      res.set_header("ETag", it->second.second);
    });
    server_.on("PUT", "/b/(.+)", [this](const httplib::Request& req, httplib::Response& res) { put(req, res); });
    server_.on("POST", "/b/(.+)", [this](const httplib::Request& req, httplib::Response& res) { post(req, res); });
    server_.on("DELETE", "/b/(.+)", [this](const httplib::Request& req, httplib::Response&) {
      std::lock_guard<std::mutex> lock(m_);
      if (req.has_param("uploadId")) uploads_.erase(req.get_param_value("uploadId"));
      else objects_.erase(req.path.substr(3));
    });
  }

  void put(const httplib::Request& req, httplib::Response& res) {
    std::lock_guard<std::mutex> lock(m_);
    std::string body = req.body;
    // The second body of a multipart upload, the only one of a single PUT.
    const bool part = req.has_param("uploadId");
    if ((fault_ == CORRUPTED_ON_THE_WAY || fault_ == STORED_CORRUPTED) &&
        (!part || req.get_param_value("partNumber") == "2")) {
      body[body.size() / 2] ^= 0x10;
    }
    if (req.has_header("Content-MD5") && fault_ != STORED_CORRUPTED &&
        req.get_header_value("Content-MD5") != base64_encode(md5_of(body))) {
      return error_doc(res, 400, "BadDigest");
    }
    const std::string etag = fault_ == KMS ? "\"opaque\"" : "\"" + hex_encode(md5_of(body)) + "\"";
    if (fault_ == KMS) res.set_header("x-amz-server-side-encryption", "aws:kms");
    res.set_header("ETag", etag);
    if (!part) return void(objects_[req.path.substr(3)] = {body, etag});
    const auto up = uploads_.find(req.get_param_value("uploadId"));
    if (up == uploads_.end()) return error_doc(res, 404, "NoSuchUpload");
    up->second[std::stoi(req.get_param_value("partNumber"))] = body;
  }

  void post(const httplib::Request& req, httplib::Response& res) {
    std::lock_guard<std::mutex> lock(m_);
    if (req.has_param("uploads")) {
      const std::string id = "up" + std::to_string(++uploads_made_);
      uploads_[id];
      if (fault_ == CREATE_LOST) return error_doc(res, 500, "InternalError");
      return res.set_content("<InitiateMultipartUploadResult><UploadId>" + id +
                             "</UploadId></InitiateMultipartUploadResult>", "application/xml");
    }
    const auto up = uploads_.find(req.get_param_value("uploadId"));
    if (up == uploads_.end()) return error_doc(res, 404, "NoSuchUpload");
    if (fault_ == COMPLETE_LOST_SHORT || fault_ == COMPLETE_SHORT) up->second.erase(std::prev(up->second.end()));
    std::string object, md5s;
    for (const auto& p : up->second) object += p.second, md5s += md5_of(p.second);
    const std::string etag = fault_ == KMS ? "\"opaque\""
                             : "\"" + hex_encode(md5_of(md5s)) + "-" + std::to_string(up->second.size()) + "\"";
    objects_[req.path.substr(3)] = {object, etag};
    uploads_.erase(up);
    if ((fault_ == COMPLETE_LOST || fault_ == COMPLETE_LOST_SHORT) && ++completions_ == 1) {
      return error_doc(res, 500, "InternalError");
    }
    res.set_content("<CompleteMultipartUploadResult><ETag>" +
                    std::string(etag.size() > 2 ? "&quot;" + etag.substr(1, etag.size() - 2) + "&quot;" : etag) +
                    "</ETag></CompleteMultipartUploadResult>", "application/xml");
  }

  Fault fault_;
  au_test::HTTP_Test_Server server_;
  std::mutex m_;
  std::map<std::string, std::pair<std::string, std::string>> objects_;  // bytes, ETag
  std::map<std::string, std::map<int, std::string>> uploads_;
  int uploads_made_ = 0, completions_ = 0;
};

Client_IO_Base::Options options() {
  Client_IO_Base::Options o;
  o.access_key = "AKIDTEST";
  o.secret_key = "s3cr3t";
  o.retry_count = 2;
  o.retry_backoff_ms = 1;
  o.resume_buffer_size = MIN_RESUME_BUFFER_SIZE;
  return o;
}

size_t count(const Fake_S3& s3, const std::string& method, const std::string& param) {
  size_t n = 0;
  for (const auto& r : s3.server_.requests()) n += r.method == method && r.query.find(param) != std::string::npos;
  return n;
}

}  // namespace

TEST(S3_Integrity, a_piece_lands_whole_and_as_sent_or_not_at_all) {
  std::string multi(2 * MIN_RESUME_BUFFER_SIZE + 1234, '\0');  // three parts
  for (size_t i = 0; i < multi.size(); ++i) multi[i] = static_cast<char>((i * 2654435761u) >> 11);
  const std::string single = multi.substr(0, 100000);
  // The failure's reason for each fault, or nullptr for success.
  const struct { Fault fault; bool multipart; const char* error; } cases[] = {
      {NONE, false, nullptr},
      {NONE, true, nullptr},
      {KMS, false, nullptr},
      {KMS, true, nullptr},
      {CORRUPTED_ON_THE_WAY, false, "S3 PUT b/pool/p: HTTP 400 BadDigest"},
      {CORRUPTED_ON_THE_WAY, true, "S3 PUT b/pool/p: HTTP 400 BadDigest"},
      {STORED_CORRUPTED, false, "S3 PUT b/pool/p: the ETag answered ("},
      {STORED_CORRUPTED, true, ") is not the MD5 of the bytes sent"},
      {CREATE_LOST, true, "S3 POST b/pool/p: HTTP 500 InternalError"},
      {COMPLETE_LOST, true, nullptr},
      {COMPLETE_LOST_SHORT, true, "HTTP 404 NoSuchUpload, and the object there is not the one sent"},
      {COMPLETE_SHORT, true, "is not the one of the parts sent"},
  };
  for (const auto& c : cases) {
    const std::string what = "fault " + std::to_string(c.fault) + (c.multipart ? " multipart" : " single");
    const std::string& data = c.multipart ? multi : single;
    Fake_S3 s3(c.fault);
    ASSERT_TRUE(s3.server_.start());
    std::string error;
    auto store = S3_Pool_Store::connect("s3://127.0.0.1:" + std::to_string(s3.server_.port()) + "/b/pool",
                                        options(), error);
    auto writer = store ? store->open_write("p", error) : nullptr;
    ASSERT_TRUE(writer) << error;
    const bool ok = writer->write(data.data(), data.size(), error) && writer->commit(error);
    writer.reset();  // a failed writer takes its upload back
    const auto object = s3.objects_.find("pool/p");
    EXPECT_EQ(ok, c.error == nullptr) << what << ": " << error;
    EXPECT_TRUE(!ok || (object != s3.objects_.end() && object->second.first == data)) << what;
    EXPECT_TRUE(ok || (c.error && error.find(c.error) != std::string::npos)) << what << ": " << error;
    // No upload stays open, and no object this writer made with other bytes stays (what
    // a lost completion left is not known to be its own).
    EXPECT_TRUE(ok || c.fault == COMPLETE_LOST_SHORT || object == s3.objects_.end()) << what;
    EXPECT_EQ(s3.uploads_.size(), 0u) << what;
    // A creation the gateway may have carried out is not sent again (what it made is
    // looked for and aborted); a completion is, and one that finds its upload gone looks
    // at the object before it counts. A part refused or mismatched is never completed.
    EXPECT_EQ(count(s3, "POST", "uploads="), c.multipart ? 1u : 0u) << what;
    EXPECT_EQ(count(s3, "HEAD", ""), c.fault == COMPLETE_LOST || c.fault == COMPLETE_LOST_SHORT ? 2u : 1u) << what;
    const bool bad_part = c.fault == STORED_CORRUPTED || c.fault == CORRUPTED_ON_THE_WAY;
    EXPECT_TRUE(!bad_part || count(s3, "POST", "uploadId=") == 0) << what;
  }
}

// A gateway that never ends a listing, each way it can go round: the listing fails with
// one reason after a bounded number of pages.
TEST(S3_Integrity, listings_that_never_end_fail_with_one_reason) {
  enum Mode { SAME_TOKEN, SAME_KEYS, EMPTY_PAGES, ENDLESS_KEYS };
  std::atomic<int> mode{0}, pages{0};
  au_test::HTTP_Test_Server server;
  server.on("GET", "/b", [&](const httplib::Request&, httplib::Response& res) {
    const int n = ++pages;
    std::string keys;
    if (mode == SAME_KEYS) keys = "<Contents><Key>pool/a</Key></Contents>";
    for (int i = 0; mode == ENDLESS_KEYS && i < 10; ++i) {
      keys += "<Contents><Key>pool/k" + std::to_string(100000 + n * 10 + i) + "</Key></Contents>";
    }
    res.set_content("<ListBucketResult><IsTruncated>true</IsTruncated>" + keys + "<NextContinuationToken>t" +
                        (mode == SAME_TOKEN ? "" : std::to_string(n)) + "</NextContinuationToken></ListBucketResult>",
                    "application/xml");
  });
  ASSERT_TRUE(server.start());
  S3_Endpoint endpoint;
  std::string error;
  ASSERT_TRUE(make_s3_endpoint("s3://127.0.0.1:" + std::to_string(server.port()) + "/b/pool", options(), endpoint, error));
  endpoint.max_list_keys = 100;
  endpoint.max_list_pages = 50;
  S3_Client client(endpoint);
  const struct { Mode mode; const char* error; int pages; } cases[] = {
      {SAME_TOKEN, "S3 listing repeats a continuation token", 2},
      {SAME_KEYS, "S3 listing goes back to keys already listed", 2},
      {EMPTY_PAGES, "S3 listing longer than 50 pages", 51},
      {ENDLESS_KEYS, "S3 listing longer than 100 keys", 11},
  };
  for (const auto& c : cases) {
    mode = c.mode;
    pages = 0;
    std::vector<std::string> names{"kept"};
    EXPECT_FALSE(client.list("", names, error)) << c.mode;
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(pages, c.pages) << c.mode;
    EXPECT_EQ(names, std::vector<std::string>{"kept"});
  }
}
