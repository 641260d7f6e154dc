#include "framework/client_io/s3_client.h"

#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "framework/base/exponential_backoff.h"
#include "framework/client_io/s3_replies_internal.h"
#include "framework/http/curl_global.h"
#include "framework/http/http_retry.h"

std::string s3_escape(const std::string& text) {
  char* e = curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size()));
  std::string out = e ? e : "";
  curl_free(e);
  return out;
}

bool xml_next(const std::string& doc, const char* tag, size_t& from, std::string& out) {
  const std::string open = std::string("<") + tag + ">", close = std::string("</") + tag + ">";
  const size_t a = doc.find(open, from);
  if (a == std::string::npos) return false;
  const size_t b = doc.find(close, a + open.size());
  if (b == std::string::npos) return false;
  from = b + close.size();
  out.clear();
  for (size_t i = a + open.size(); i < b; ++i) {
    if (doc[i] != '&') {
      out += doc[i];
      continue;
    }
    const size_t semi = doc.find(';', i);
    if (semi == std::string::npos || semi > b) return false;
    const std::string name = doc.substr(i + 1, semi - i - 1);
    if (name == "amp") out += '&';
    else if (name == "lt") out += '<';
    else if (name == "gt") out += '>';
    else if (name == "quot") out += '"';
    else if (name == "apos") out += '\'';
    else if (name.size() > 1 && name[0] == '#') {
      const bool hex = name[1] == 'x';
      const std::string digits = name.substr(hex ? 2 : 1);
      if (digits.empty() || digits.size() > 6 ||
          digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos) {
        return false;
      }
      const unsigned long c = std::stoul(digits, nullptr, hex ? 16 : 10);
      if (c == 0 || c > 0x7f) return false;  // keys outside ASCII are not ours
      out += static_cast<char>(c);
    } else {
      return false;
    }
    i = semi;
  }
  return true;
}

bool make_s3_endpoint(const std::string& url, const Client_IO_Base::Options& options,
                      S3_Endpoint& out, std::string& error) {
  S3_Endpoint e;
  std::string rest;
  if (url.rfind("s3://", 0) == 0) rest = url.substr(5);
  else if (url.rfind("s3s://", 0) == 0) e.tls = true, rest = url.substr(6);
  else return (error = "not an S3 pool URL"), false;
  const size_t slash = rest.find('/');
  const std::string authority = rest.substr(0, slash);
  const std::string path = slash == std::string::npos ? "" : rest.substr(slash + 1);
  if (authority.find('@') != std::string::npos) {
    return (error = "an S3 pool URL must not carry credentials; they come from the options"), false;
  }
  const size_t colon = authority.rfind(':');
  const bool has_port = colon != std::string::npos && authority.find(']', colon) == std::string::npos;
  e.host = authority.substr(0, has_port ? colon : std::string::npos);
  const std::string port = has_port ? authority.substr(colon + 1) : "";
  if (e.host.empty() || e.host.find_first_of("/?#") != std::string::npos) {
    return (error = "S3 pool URL without a host"), false;
  }
  if (has_port && (port.empty() || port.size() > 5 ||
                   port.find_first_not_of("0123456789") != std::string::npos || std::stoul(port) == 0 ||
                   std::stoul(port) > 65535)) {
    return (error = "S3 pool URL with a bad port"), false;
  }
  e.port = has_port ? static_cast<uint16_t>(std::stoul(port)) : (e.tls ? 443 : 80);
  const size_t bucket_end = path.find('/');
  e.bucket = path.substr(0, bucket_end);
  if (e.bucket.empty() || e.bucket.size() > 63 ||
      e.bucket.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-") != std::string::npos) {
    return (error = "S3 pool URL without a valid bucket name"), false;
  }
  if (bucket_end != std::string::npos) e.prefix = path.substr(bucket_end + 1);
  if (!e.prefix.empty() && e.prefix.back() != '/') e.prefix += '/';
  if (options.access_key.empty() || options.secret_key.empty()) {
    return (error = "an S3 pool needs an access key and a secret key in the options"), false;
  }
  e.access_key = options.access_key;
  e.secret_key = options.secret_key;
  const auto region = options.extra_options.find("s3_region");
  if (region != options.extra_options.end()) e.region = region->second;
  const auto ca = options.extra_options.find("s3_ca_file");
  if (ca != options.extra_options.end()) e.ca_file = ca->second;
  e.connect_timeout_ms = options.connect_timeout_ms;
  e.io_timeout_ms = options.io_timeout_ms;
  e.retry_count = options.retry_count;
  e.retry_backoff_ms = options.retry_backoff_ms;
  out = std::move(e);
  return true;
}

S3_Client::S3_Client(const S3_Endpoint& endpoint) : endpoint_(endpoint) {
  ensure_curl_global_init();
  curl_ = curl_easy_init();
}

S3_Client::~S3_Client() {
  if (curl_) curl_easy_cleanup(curl_);
}

bool S3_Client::attempt(const Request& rq, Reply& reply, std::string& error, bool& retryable) {
  if (!curl_) {
    retryable = false;
    error = std::string("S3 ") + rq.method + " " + endpoint_.bucket + "/" + endpoint_.prefix + rq.key;
    return (error += ": no curl handle"), false;
  }
  S3_Attempt a(endpoint_, rq, reply);
  a.prepare(curl_);
  return a.judge(curl_, curl_easy_perform(curl_), error, retryable);
}

S3_Retries::S3_Retries(const S3_Endpoint& endpoint)
    : slot_ms_(endpoint.retry_backoff_ms),
      count_(std::min<unsigned>(endpoint.retry_count, HTTP_Retry_Policy::MAX_RETRIES)) {
  renew();
}

void S3_Retries::renew() {
  delays_ = Exponential_Backoff_Iterator(slot_ms_, count_, HTTP_Retry_Policy::MAX_INTERVAL_MS, true);
}

bool S3_Retries::next(bool retryable, unsigned& delay_ms) {
  if (!retryable || delays_ == Exponential_Backoff_Iterator()) return false;
  delay_ms = *delays_;
  ++delays_;
  ++tries_;
  return true;
}

bool S3_Client::request(const Request& rq, Reply& reply, std::string& error) {
  S3_Retries retries(endpoint_);
  for (;;) {
    bool retryable = false;
    unsigned delay_ms = 0;
    if (attempt(rq, reply, error, retryable)) {
      if (retries.tries() > 1) error.clear();  // the earlier attempts' reasons are history
      return (reply.tries = retries.tries()), true;
    }
    if (!retries.next(retryable, delay_ms)) return (reply.tries = retries.tries()), false;
    std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
  }
}

// Best effort: the caller already has its failure.
void S3_Client::discard(const std::string& key) {
  Request rq;
  rq.method = "DELETE";
  rq.key = key;
  Reply reply;
  std::string ignored;
  request(rq, reply, ignored);
}

int64_t S3_Client::head(const std::string& key, std::string& error) {
  Request rq;
  rq.method = "HEAD";
  rq.key = key;
  Reply reply;
  if (!request(rq, reply, error)) {
    if (reply.status == 404) error = "no such piece '" + key + "'";
    return -1;
  }
  if (reply.content_length < 0) return (error = "S3 HEAD " + key + ": no length"), -1;
  return reply.content_length;
}

S3_Client::Request S3_Client::range_request(const std::string& key, uint64_t offset, void* buf,
                                            size_t len) {
  Request rq;
  rq.key = key;
  rq.range = "bytes=" + std::to_string(offset) + "-" + std::to_string(offset + len - 1);
  rq.into = static_cast<char*>(buf);
  rq.into_len = len;
  return rq;
}

bool S3_Client::range_reply_ok(const Request& rq, size_t len, const Reply& reply, std::string& error) {
  if (reply.status != 206 && !(reply.status == 200 && rq.range.rfind("bytes=0-", 0) == 0)) {
    return (error = "S3 GET " + rq.key + ": the range was not honoured"), false;
  }
  if (reply.content_length != static_cast<int64_t>(len)) {
    return (error = "S3 GET " + rq.key + ": short range reply"), false;
  }
  return true;
}

ssize_t S3_Client::get_range(const std::string& key, uint64_t offset, void* buf, size_t len,
                             int64_t object_size, std::string& error) {
  if (offset >= static_cast<uint64_t>(object_size) || len == 0) return 0;
  len = static_cast<size_t>(std::min<uint64_t>(len, object_size - offset));
  const Request rq = range_request(key, offset, buf, len);
  Reply reply;
  if (!request(rq, reply, error) || !range_reply_ok(rq, len, reply, error)) return -1;
  return static_cast<ssize_t>(len);
}

bool S3_Client::put(const std::string& key, const char* data, size_t len, std::string& error,
                    const std::string& md5) {
  Request rq;
  rq.method = "PUT";
  rq.key = key;
  rq.upload = data;
  rq.upload_len = len;
  rq.md5 = md5.empty() ? s3_md5(data, len) : md5;
  Reply reply;
  if (request(rq, reply, error)) return true;
  if (reply.etag_mismatch) discard(key);
  return false;
}

bool S3_Client::create_upload(const std::string& key, std::string& upload_id, std::string& error) {
  Request rq;
  rq.method = "POST";
  rq.key = key;
  rq.query = "uploads=";
  Reply reply;
  if (!request(rq, reply, error)) {
    // Not sent again (a repeat could make a second upload), but one the server made
    // before its answer was lost is taken back.
    if (reply.status / 100 != 4) abort_strays(key);
    return false;
  }
  upload_id = s3_upload_id(reply.body);
  if (upload_id.empty()) {
    return (error = "S3 POST " + key + "?uploads: no upload id in the reply"), false;
  }
  return true;
}

S3_Client::Request S3_Client::part_request(const std::string& key, const std::string& upload_id,
                                           unsigned part, const char* data, size_t len,
                                           const std::string& md5) {
  Request rq;
  rq.method = "PUT";
  rq.key = key;
  rq.query = "partNumber=" + std::to_string(part) + "&uploadId=" + s3_escape(upload_id);
  rq.upload = data;
  rq.upload_len = len;
  rq.md5 = md5;
  return rq;
}

bool S3_Client::part_reply_ok(const Request& rq, const Reply& reply, std::string& etag,
                              std::string& error) {
  if (reply.etag.empty()) return (error = "S3 PUT " + rq.key + ": part without an ETag"), false;
  etag = reply.etag;
  return true;
}

bool S3_Client::upload_part(const std::string& key, const std::string& upload_id, unsigned part,
                            const char* data, size_t len, std::string& etag, std::string& error) {
  const Request rq = part_request(key, upload_id, part, data, len, s3_md5(data, len));
  Reply reply;
  return request(rq, reply, error) && part_reply_ok(rq, reply, etag, error);
}

bool S3_Client::complete_upload(const std::string& key, const std::string& upload_id,
                                const std::vector<std::string>& etags, uint64_t size,
                                std::string& error) {
  std::string body = "<CompleteMultipartUpload>";
  for (size_t i = 0; i < etags.size(); ++i) {
    body += "<Part><PartNumber>" + std::to_string(i + 1) + "</PartNumber><ETag>" + etags[i] +
            "</ETag></Part>";
  }
  body += "</CompleteMultipartUpload>";
  Request rq;
  rq.method = "POST";
  rq.key = key;
  rq.query = "uploadId=" + s3_escape(upload_id);
  rq.upload = body.data();
  rq.upload_len = body.size();
  rq.repeatable = true;  // the upload id makes it one completion, whatever the repeats
  Reply reply;
  const std::string expected = s3_multipart_etag(etags);
  if (request(rq, reply, error)) {
    const std::string got = s3_bare_etag(s3_completed_etag(reply.body));
    if (expected.empty() || !s3_etag_is_md5(got) || got == expected) return true;
    error = "S3 POST " + endpoint_.bucket + "/" + endpoint_.prefix + key + ": the object's ETag " +
            got + " is not the one of the parts sent (" + expected + ")";
    discard(key);
    return false;
  }
  // A try whose answer was lost may have completed the upload; the object then tells.
  if (reply.tries < 2 || reply.status != 404 || s3_error_code(reply.body) != "NoSuchUpload") return false;
  Request head;
  head.method = "HEAD";
  head.key = key;
  Reply found;
  std::string why;
  if (!request(head, found, why)) return (error += ", and the object could not be checked: " + why), false;
  const std::string etag = s3_bare_etag(found.etag);
  if (found.content_length != static_cast<int64_t>(size) ||
      (!expected.empty() && s3_etag_is_md5(etag) && etag != expected)) {
    return (error += ", and the object there is not the one sent"), false;
  }
  error.clear();
  return true;
}

// Best effort: the caller already has its failure.
void S3_Client::abort_strays(const std::string& key) {
  Request rq;
  rq.query = "prefix=" + s3_escape(endpoint_.prefix + key) + "&uploads=";
  Reply reply;
  std::string ignored;
  if (!request(rq, reply, ignored)) return;
  for (const std::string& id : s3_uploads_of(reply.body, endpoint_.prefix + key)) abort_upload(key, id, ignored);
}

bool S3_Client::abort_upload(const std::string& key, const std::string& upload_id, std::string& error) {
  Request rq;
  rq.method = "DELETE";
  rq.key = key;
  rq.query = "uploadId=" + s3_escape(upload_id);
  Reply reply;
  return request(rq, reply, error) || reply.status == 404;
}

bool S3_Client::list(const std::string& prefix, std::vector<std::string>& names, std::string& error) {
  S3_Listing listing(endpoint_.prefix, endpoint_.max_list_keys, endpoint_.max_list_pages);
  std::string token;
  do {
    Request rq;
    rq.query = (token.empty() ? "" : "continuation-token=" + s3_escape(token) + "&") +
               "list-type=2&prefix=" + s3_escape(endpoint_.prefix + prefix);
    Reply reply;
    if (!request(rq, reply, error) || !listing.take(reply.body, token, error)) return false;
  } while (!token.empty());
  std::vector<std::string>& found = listing.names();
  std::sort(found.begin(), found.end());
  names.swap(found);
  return true;
}

bool S3_Client::create_bucket(std::string& error) {
  Request rq;
  rq.method = "PUT";
  Reply reply;
  if (request(rq, reply, error)) return true;
  return s3_error_code(reply.body) == "BucketAlreadyOwnedByYou";
}
