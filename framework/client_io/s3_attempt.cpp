// One signed request on an easy handle (S3_Attempt), as S3_Client and S3_Transfers run it.
#include "framework/client_io/s3_client.h"

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "framework/base/base64.h"
#include "framework/base/hex_string.h"
#include "framework/client_io/s3_replies_internal.h"
#include "framework/http/curl_error_kind.h"

namespace {

constexpr size_t MAX_XML_REPLY = 16u << 20;
constexpr long UPLOAD_BUFFER_SIZE = 512L << 10;

// Each path segment escaped on its own; the slashes stay.
std::string escape_path(const std::string& key) {
  std::string out;
  size_t start = 0;
  while (true) {
    const size_t slash = key.find('/', start);
    out += s3_escape(key.substr(start, slash - start));
    if (slash == std::string::npos) return out;
    out += '/';
    start = slash + 1;
  }
}

std::string url_for(const S3_Endpoint& e, const std::string& key, const std::string& query) {
  std::string url = std::string(e.tls ? "https://" : "http://") + e.host + ":" +
                    std::to_string(e.port) + "/" + e.bucket;
  if (!key.empty()) url += "/" + escape_path(e.prefix + key);
  if (!query.empty()) url += "?" + query;
  return url;
}

}  // namespace

struct S3_Attempt::State {
  State(const S3_Endpoint& e, const S3_Client::Request& r, S3_Client::Reply& out)
      : endpoint(e), rq(r), reply(out) {}

  const S3_Endpoint& endpoint;
  const S3_Client::Request& rq;
  S3_Client::Reply& reply;
  std::string what;
  CURL* curl = nullptr;
  std::string range;  // asked for on this try
  std::string content_range;
  long status = 0;  // of this try, once its body starts
  size_t got = 0;
  size_t streamed = 0;  // to the sink, on this try
  const char* broke = nullptr;  // why the body was cut off
  size_t sent = 0;
  char errbuf[CURL_ERROR_SIZE] = {};
  std::string url;
  std::string sigv4;
  curl_slist* headers = nullptr;

  static size_t on_body(char* p, size_t size, size_t n, void* self) {
    auto* x = static_cast<State*>(self);
    const size_t len = size * n;
    if (x->rq.sink && x->status_now() / 100 == 2) {
      // A sink's bytes go out as they come: they must be exactly the ones asked for.
      if (x->streamed == 0 && !x->exact_range()) return x->broke = "the range was not honoured", 0;
      switch (x->rq.sink->take(p, len)) {
        case S3_Body_Sink::TAKEN: x->streamed += len; break;
        case S3_Body_Sink::NO_ROOM: return CURL_WRITEFUNC_PAUSE;
        case S3_Body_Sink::REFUSED: return x->broke = "reply larger than expected", 0;
      }
    } else if (x->rq.into) {
      if (x->got + len > x->rq.into_len) return x->broke = "reply larger than expected", 0;
      std::copy(p, p + len, x->rq.into + x->got);
    } else {
      if (x->reply.body.size() + len > MAX_XML_REPLY) return x->broke = "reply larger than expected", 0;
      x->reply.body.append(p, len);
    }
    x->got += len;
    return len;
  }
  long status_now() {
    if (status == 0) curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    return status;
  }
  bool exact_range() const {
    if (status != 206) return range.compare(0, 8, "bytes=0-") == 0;
    const std::string want = "bytes " + range.substr(6) + "/";
    return content_range.compare(0, want.size(), want) == 0;
  }
  static size_t on_header(char* p, size_t size, size_t n, void* self) {
    auto* x = static_cast<State*>(self);
    const size_t len = size * n;
    static const char SSE[] = "x-amz-server-side-encryption:";
    static const char SSE_C[] = "x-amz-server-side-encryption-customer-algorithm:";
    if (len > sizeof SSE && ::strncasecmp(p, SSE, sizeof SSE - 1) == 0) {
      const std::string v(p + sizeof SSE - 1, len - (sizeof SSE - 1));
      if (v.find("aws:kms") != std::string::npos) x->reply.etag_not_md5 = true;
    } else if (len > sizeof SSE_C && ::strncasecmp(p, SSE_C, sizeof SSE_C - 1) == 0) {
      x->reply.etag_not_md5 = true;
    } else if (len > 5 && ::strncasecmp(p, "etag:", 5) == 0) {
      std::string v(p + 5, len - 5);
      v.erase(0, v.find_first_not_of(" \t"));
      v.erase(v.find_last_not_of(" \t\r\n") + 1);
      x->reply.etag = v;
    } else if (len > 14 && ::strncasecmp(p, "content-range:", 14) == 0) {
      x->content_range.assign(p + 14, len - 14);
      x->content_range.erase(0, x->content_range.find_first_not_of(" \t"));
    }
    return len;
  }
  static size_t on_read(char* buf, size_t size, size_t n, void* self) {
    auto* x = static_cast<State*>(self);
    const size_t len = std::min(size * n, x->rq.upload_len - x->sent);
    std::copy(x->rq.upload + x->sent, x->rq.upload + x->sent + len, buf);
    x->sent += len;
    return len;
  }
  static int on_seek(void* self, curl_off_t offset, int origin) {
    auto* x = static_cast<State*>(self);
    if (origin != SEEK_SET || offset < 0 || static_cast<size_t>(offset) > x->rq.upload_len) {
      return CURL_SEEKFUNC_CANTSEEK;
    }
    x->sent = static_cast<size_t>(offset);
    return CURL_SEEKFUNC_OK;
  }
};

S3_Attempt::S3_Attempt(const S3_Endpoint& endpoint, const S3_Client::Request& rq,
                       S3_Client::Reply& reply)
    : s_(new State(endpoint, rq, reply)) {
  s_->what = std::string("S3 ") + rq.method + " " + endpoint.bucket + "/" + endpoint.prefix + rq.key;
  s_->url = url_for(endpoint, rq.key, rq.query);
  s_->sigv4 = "aws:amz:" + endpoint.region + ":s3";
}

S3_Attempt::~S3_Attempt() { curl_slist_free_all(s_->headers); }

void S3_Attempt::prepare(CURL* curl) {
  State& x = *s_;
  const S3_Endpoint& e = x.endpoint;
  x.reply = S3_Client::Reply();
  x.got = x.sent = x.streamed = 0;
  x.curl = curl;
  x.status = 0;
  x.broke = nullptr;
  x.content_range.clear();
  x.range = x.rq.sink ? x.rq.sink->range() : x.rq.range;
  x.errbuf[0] = '\0';
  curl_slist_free_all(x.headers);
  curl_easy_reset(curl);
  curl_easy_setopt(curl, CURLOPT_URL, x.url.c_str());
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, x.errbuf);
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(e.connect_timeout_ms));
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, std::max(1L, static_cast<long>(e.io_timeout_ms / 1000)));
  curl_easy_setopt(curl, CURLOPT_AWS_SIGV4, x.sigv4.c_str());
  curl_easy_setopt(curl, CURLOPT_USERNAME, e.access_key.c_str());
  curl_easy_setopt(curl, CURLOPT_PASSWORD, e.secret_key.c_str());
  if (!e.ca_file.empty()) curl_easy_setopt(curl, CURLOPT_CAINFO, e.ca_file.c_str());
  // Parts of many MiB go out in fewer, larger socket calls than libcurl's default. Replies
  // keep its 16 KiB receive buffer: a larger one, no longer hot in cache when its bytes
  // are copied out, made streaming GETs measurably slower.
  curl_easy_setopt(curl, CURLOPT_UPLOAD_BUFFERSIZE, UPLOAD_BUFFER_SIZE);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &State::on_body);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &x);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &State::on_header);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &x);
  // libcurl signs no payload hash of its own; the gateway wants the header. (An empty
  // "Expect:" to skip 100-continue would be signed but not sent: the signature fails.)
  x.headers = curl_slist_append(nullptr, "x-amz-content-sha256: UNSIGNED-PAYLOAD");
  if (!x.range.empty()) x.headers = curl_slist_append(x.headers, ("Range: " + x.range).c_str());
  // The server refuses a body that does not match it (BadDigest): bytes changed on the
  // way never land.
  if (!x.rq.md5.empty()) {
    const std::string md5 = "Content-MD5: " + base64_encode(x.rq.md5.data(), x.rq.md5.size());
    x.headers = curl_slist_append(x.headers, md5.c_str());
  }
  const std::string method = x.rq.method;
  if (method == "HEAD") {
    curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
  } else if (method == "PUT") {
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, &State::on_read);
    curl_easy_setopt(curl, CURLOPT_READDATA, &x);
    curl_easy_setopt(curl, CURLOPT_SEEKFUNCTION, &State::on_seek);
    curl_easy_setopt(curl, CURLOPT_SEEKDATA, &x);
    curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(x.rq.upload_len));
  } else if (method == "POST") {
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(x.rq.upload_len));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, x.rq.upload ? x.rq.upload : "");
    x.headers = curl_slist_append(x.headers, "Content-Type: application/xml");
  } else if (method != "GET") {
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, x.rq.method);
  }
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, x.headers);
}

size_t S3_Attempt::streamed_bytes() const { return s_->streamed; }

bool S3_Attempt::judge(CURL* curl, int curl_code, std::string& error, bool& retryable) {
  State& x = *s_;
  // Nothing on the handle may point into this attempt once it is gone.
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
  const CURLcode rc = static_cast<CURLcode>(curl_code);
  retryable = false;
  // What the server may have acted on goes again only when a repeat is harmless.
  const bool resend = std::strcmp(x.rq.method, "POST") != 0 || x.rq.repeatable;
  if (rc != CURLE_OK) {
    retryable = curl_error_is_transient(rc) && (resend || curl_error_is_unsent(rc));
    error = x.what + ": " + (x.broke ? x.broke : (x.errbuf[0] ? x.errbuf : curl_easy_strerror(rc)));
    return false;
  }
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &x.reply.status);
  curl_off_t length = -1;
  curl_easy_getinfo(curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  x.reply.content_length = length;
  // A 200 may still carry an error document (a failed multipart completion).
  const bool error_doc = !x.rq.into && x.reply.body.find("<Error>") != std::string::npos;
  if (x.reply.status / 100 == 2 && !error_doc) {
    if (x.rq.md5.empty() || x.reply.etag_not_md5) return true;
    const std::string etag = s3_bare_etag(x.reply.etag);
    if (etag == hex_encode(x.rq.md5.data(), x.rq.md5.size())) return true;
    // The server holds other bytes than were sent, or says so: final either way.
    x.reply.etag_mismatch = true;
    const bool shown = !etag.empty() && etag.size() <= 64 &&
                       etag.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz-") == std::string::npos;
    error = x.what + ": the ETag answered (" + (shown ? etag : etag.empty() ? "none" : "unreadable") +
            ") is not the MD5 of the bytes sent";
    return false;
  }
  std::string code;
  size_t at = 0;
  if (!xml_next(x.reply.body, "Code", at, code)) code = "no error code";
  retryable = resend && (x.reply.status >= 500 || (error_doc && x.reply.status / 100 == 2));
  error = x.what + ": HTTP " + std::to_string(x.reply.status) + " " + code;
  return false;
}
