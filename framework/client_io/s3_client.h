// Signed S3 requests over libcurl (its own AWS SigV4 signing), for S3 pools.
//
// Requests go path-style to http(s)://host:port/bucket/key. Each one is retried with
// doubling delays on transport errors and 5xx answers only; any other answer is final.
// As everywhere in the library, a POST goes again only when no connection was made,
// unless its caller makes a repeat harmless (a multipart completion). Bodies go out with
// their Content-MD5, and the ETag answered must be that MD5.
// Error texts name the method, the object and the server's error code, never a key.
// One client is one libcurl handle with its kept-alive connection: one thread at a time.
// S3_Attempt is one try of a request, split so that a multi handle can run several.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "framework/base/exponential_backoff.h"
#include "framework/client_io/client_io_options.h"

typedef void CURL;

struct S3_Endpoint {
  bool tls = false;
  std::string host;  // an IPv6 address in brackets
  uint16_t port = 0;
  std::string bucket;
  std::string prefix;  // object keys of the pool start with it ("" or ending in '/')
  std::string region = "us-east-1";
  std::string access_key;
  std::string secret_key;
  std::string ca_file;  // "" for the system's
  uint32_t connect_timeout_ms = 10000;
  uint32_t io_timeout_ms = 60000;
  uint32_t retry_count = 3;
  uint32_t retry_backoff_ms = 200;
  // A listing longer than this fails: a gateway must not make one run for ever.
  uint64_t max_list_keys = 1000000;
  uint64_t max_list_pages = 10000;
};

// "s3://host:port/bucket[/prefix]" or "s3s://..." with the options' keys, time-outs,
// retries and extra options "s3_region" and "s3_ca_file".
bool make_s3_endpoint(const std::string& url, const Client_IO_Base::Options& options,
                      S3_Endpoint& out, std::string& error);

// The retries of one S3 request, whether S3_Client or S3_Transfers runs it: after a try
// that another may mend (S3_Attempt::judge says which, by the library's rule for what
// may be sent again), the next of the endpoint's doubling delays, with jitter, each at
// most the library's longest retry interval.
class S3_Retries {
 public:
  S3_Retries() = default;  // none
  explicit S3_Retries(const S3_Endpoint& endpoint);
  // After a failed try: true with the wait before the next one; false when it is over.
  bool next(bool retryable, unsigned& delay_ms);
  // The delays start again (a stream that made progress).
  void renew();
  unsigned tries() const { return tries_; }  // the current one included

 private:
  unsigned slot_ms_ = 0, count_ = 0;
  Exponential_Backoff_Iterator delays_;
  unsigned tries_ = 1;
};

// Where a streaming GET's body goes as it arrives, instead of into a buffer.
class S3_Body_Sink {
 public:
  enum Taken { TAKEN, NO_ROOM, REFUSED };
  virtual ~S3_Body_Sink() = default;
  // "bytes=a-b" to ask for on each try: a retry resumes after the bytes already taken.
  virtual std::string range() const = 0;
  // The next bytes of the body, all or none. NO_ROOM pauses the transfer until
  // S3_Transfers::resume(), which offers the same bytes again; REFUSED fails it.
  virtual Taken take(const char* p, size_t len) = 0;
};

class S3_Client {
 public:
  struct Reply {
    long status = 0;
    std::string body;  // error documents and listings
    std::string etag;
    int64_t content_length = -1;
    // The server encrypted with keys of its own (SSE-KMS, SSE-C): its ETag is no MD5.
    bool etag_not_md5 = false;
    // A 2xx answer whose ETag was not the MD5 of the body sent.
    bool etag_mismatch = false;
    unsigned tries = 0;  // by request(), this answer's included
  };

  explicit S3_Client(const S3_Endpoint& endpoint);
  ~S3_Client();
  S3_Client(const S3_Client&) = delete;
  S3_Client& operator=(const S3_Client&) = delete;

  struct Request {
    const char* method = "GET";
    std::string key;    // "" for the bucket itself
    std::string query;  // encoded, names in sorted order ("partNumber=1&uploadId=x")
    std::string range;  // "bytes=a-b" or ""
    const char* upload = nullptr;  // the body, if any
    size_t upload_len = 0;
    char* into = nullptr;  // where the reply body goes instead of Reply::body
    size_t into_len = 0;
    // Instead of `range` and `into`, on S3_Transfers only. Only a 206 answering exactly
    // its range (or a 200 to one from 0) reaches it.
    S3_Body_Sink* sink = nullptr;
    // The body's MD5 (16 bytes) or "": sent as Content-MD5, and a 2xx answer's ETag must
    // be its hex unless the server says it encrypted with keys of its own.
    std::string md5;
    // A POST that may go again after the server may have acted on it.
    bool repeatable = false;
  };

  // One signed request with its retries. True for a 2xx answer without an S3 error
  // document in it.
  bool request(const Request& rq, Reply& reply, std::string& error);

  // The object's size, or -1 with `error` ("no such piece" for a 404).
  int64_t head(const std::string& key, std::string& error);
  // Bytes of [offset, offset + len) into buf; fewer only at the end of the object.
  ssize_t get_range(const std::string& key, uint64_t offset, void* buf, size_t len,
                    int64_t object_size, std::string& error);
  // `md5`: the data's, when the caller has it already. An object that lands with another
  // ETag is deleted again.
  bool put(const std::string& key, const char* data, size_t len, std::string& error,
           const std::string& md5 = std::string());
  // Not sent again once the server may have acted on it; an upload it may have made
  // anyway is looked for and aborted.
  bool create_upload(const std::string& key, std::string& upload_id, std::string& error);
  bool upload_part(const std::string& key, const std::string& upload_id, unsigned part,
                   const char* data, size_t len, std::string& etag, std::string& error);
  // Completes an upload of `size` bytes in parts with these ETags. When its ETag tells,
  // the object must be made of exactly them (or it is deleted again). A repeat that finds
  // the upload gone succeeds only if the object there has the size, and where it tells the
  // ETag, of what was sent: an earlier try may have completed it.
  bool complete_upload(const std::string& key, const std::string& upload_id,
                       const std::vector<std::string>& etags, uint64_t size, std::string& error);
  bool abort_upload(const std::string& key, const std::string& upload_id, std::string& error);
  // Keys under the pool's prefix + `prefix`, with the pool's prefix taken off.
  bool list(const std::string& prefix, std::vector<std::string>& names, std::string& error);
  bool create_bucket(std::string& error);

  // The requests behind get_range() and upload_part(), and the checks of their replies,
  // for callers that run them on their own handles.
  static Request range_request(const std::string& key, uint64_t offset, void* buf, size_t len);
  static bool range_reply_ok(const Request& rq, size_t len, const Reply& reply, std::string& error);
  static Request part_request(const std::string& key, const std::string& upload_id, unsigned part,
                              const char* data, size_t len, const std::string& md5);
  static bool part_reply_ok(const Request& rq, const Reply& reply, std::string& etag,
                            std::string& error);

  const S3_Endpoint& endpoint() const { return endpoint_; }

 private:
  bool attempt(const Request& rq, Reply& reply, std::string& error, bool& retryable);
  void discard(const std::string& key);
  void abort_strays(const std::string& key);

  S3_Endpoint endpoint_;
  CURL* curl_ = nullptr;
};

// One attempt at a request: prepare() sets an easy handle up for it, judge() reads the
// outcome once libcurl is done with the handle. The request's buffers, the reply and the
// attempt itself must outlive the transfer.
class S3_Attempt {
 public:
  S3_Attempt(const S3_Endpoint& endpoint, const S3_Client::Request& rq, S3_Client::Reply& reply);
  ~S3_Attempt();
  S3_Attempt(const S3_Attempt&) = delete;
  S3_Attempt& operator=(const S3_Attempt&) = delete;

  void prepare(CURL* curl);
  // True for a 2xx answer without an S3 error document in it; otherwise `error`, and
  // whether another attempt may fare better (transport errors and 5xx answers).
  bool judge(CURL* curl, int curl_code, std::string& error, bool& retryable);
  // Bytes of the current try that reached the request's sink.
  size_t streamed_bytes() const;

 private:
  struct State;
  std::unique_ptr<State> s_;
};

// `text` percent-encoded for a URL path segment or query value.
std::string s3_escape(const std::string& text);

// Text between <tag> and </tag> from `from` on, XML entities decoded; `from` moves past
// it. False when there is none.
bool xml_next(const std::string& doc, const char* tag, size_t& from, std::string& out);
