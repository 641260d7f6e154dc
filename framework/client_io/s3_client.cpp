#include "framework/client_io/s3_client.h"

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "framework/base/exponential_backoff.h"
#include "framework/http/curl_global.h"

namespace {

constexpr size_t MAX_XML_REPLY = 16u << 20;

bool transport_retryable(CURLcode rc) {
  switch (rc) {
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      return true;
    default:
      return false;
  }
}

std::string escape(const std::string& text) {
  char* e = curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size()));
  std::string out = e ? e : "";
  curl_free(e);
  return out;
}

// Each path segment escaped on its own; the slashes stay.
std::string escape_path(const std::string& key) {
  std::string out;
  size_t start = 0;
  while (true) {
    const size_t slash = key.find('/', start);
    out += escape(key.substr(start, slash - start));
    if (slash == std::string::npos) return out;
    out += '/';
    start = slash + 1;
  }
}

struct Exchange {
  S3_Client::Reply* reply;
  char* into;
  size_t into_len;
  size_t got = 0;
  bool overflow = false;
  const char* upload;
  size_t upload_len;
  size_t sent = 0;

  static size_t on_body(char* p, size_t size, size_t n, void* self) {
    auto* x = static_cast<Exchange*>(self);
    const size_t len = size * n;
    if (x->into) {
      if (x->got + len > x->into_len) return x->overflow = true, 0;
      std::copy(p, p + len, x->into + x->got);
    } else {
      if (x->reply->body.size() + len > MAX_XML_REPLY) return x->overflow = true, 0;
      x->reply->body.append(p, len);
    }
    x->got += len;
    return len;
  }
  static size_t on_header(char* p, size_t size, size_t n, void* self) {
    auto* x = static_cast<Exchange*>(self);
    const size_t len = size * n;
    if (len > 5 && ::strncasecmp(p, "etag:", 5) == 0) {
      std::string v(p + 5, len - 5);
      v.erase(0, v.find_first_not_of(" \t"));
      v.erase(v.find_last_not_of(" \t\r\n") + 1);
      x->reply->etag = v;
    }
    return len;
  }
  static size_t on_read(char* buf, size_t size, size_t n, void* self) {
    auto* x = static_cast<Exchange*>(self);
    const size_t len = std::min(size * n, x->upload_len - x->sent);
    std::copy(x->upload + x->sent, x->upload + x->sent + len, buf);
    x->sent += len;
    return len;
  }
  static int on_seek(void* self, curl_off_t offset, int origin) {
    auto* x = static_cast<Exchange*>(self);
    if (origin != SEEK_SET || offset < 0 || static_cast<size_t>(offset) > x->upload_len) {
      return CURL_SEEKFUNC_CANTSEEK;
    }
    x->sent = static_cast<size_t>(offset);
    return CURL_SEEKFUNC_OK;
  }
};

using Header_List = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

}  // namespace

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

std::string S3_Client::url_for(const std::string& key, const std::string& query) const {
  std::string url = std::string(endpoint_.tls ? "https://" : "http://") + endpoint_.host + ":" +
                    std::to_string(endpoint_.port) + "/" + endpoint_.bucket;
  if (!key.empty()) url += "/" + escape_path(endpoint_.prefix + key);
  if (!query.empty()) url += "?" + query;
  return url;
}

bool S3_Client::attempt(const Request& rq, Reply& reply, std::string& error, bool& retryable) {
  const std::string what = std::string("S3 ") + rq.method + " " + endpoint_.bucket + "/" +
                           endpoint_.prefix + rq.key;
  retryable = false;
  reply = Reply();
  if (!curl_) return (error = what + ": no curl handle"), false;
  Exchange x{&reply, rq.into, rq.into_len, 0, false, rq.upload, rq.upload_len, 0};
  char errbuf[CURL_ERROR_SIZE] = {};
  const std::string url = url_for(rq.key, rq.query);
  const std::string sigv4 = "aws:amz:" + endpoint_.region + ":s3";
  curl_easy_reset(curl_);
  curl_easy_setopt(curl_, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl_, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl_, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl_, CURLOPT_ERRORBUFFER, errbuf);
  curl_easy_setopt(curl_, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(endpoint_.connect_timeout_ms));
  curl_easy_setopt(curl_, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(curl_, CURLOPT_LOW_SPEED_TIME, std::max(1L, static_cast<long>(endpoint_.io_timeout_ms / 1000)));
  curl_easy_setopt(curl_, CURLOPT_AWS_SIGV4, sigv4.c_str());
  curl_easy_setopt(curl_, CURLOPT_USERNAME, endpoint_.access_key.c_str());
  curl_easy_setopt(curl_, CURLOPT_PASSWORD, endpoint_.secret_key.c_str());
  if (!endpoint_.ca_file.empty()) curl_easy_setopt(curl_, CURLOPT_CAINFO, endpoint_.ca_file.c_str());
  curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, &Exchange::on_body);
  curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &x);
  curl_easy_setopt(curl_, CURLOPT_HEADERFUNCTION, &Exchange::on_header);
  curl_easy_setopt(curl_, CURLOPT_HEADERDATA, &x);
  // libcurl signs no payload hash of its own; the gateway wants the header. (An empty
  // "Expect:" to skip 100-continue would be signed but not sent: the signature fails.)
  curl_slist* raw = curl_slist_append(nullptr, "x-amz-content-sha256: UNSIGNED-PAYLOAD");
  if (!rq.range.empty()) raw = curl_slist_append(raw, ("Range: " + rq.range).c_str());
  Header_List headers(raw, curl_slist_free_all);
  const std::string method = rq.method;
  if (method == "HEAD") {
    curl_easy_setopt(curl_, CURLOPT_NOBODY, 1L);
  } else if (method == "PUT") {
    curl_easy_setopt(curl_, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl_, CURLOPT_READFUNCTION, &Exchange::on_read);
    curl_easy_setopt(curl_, CURLOPT_READDATA, &x);
    curl_easy_setopt(curl_, CURLOPT_SEEKFUNCTION, &Exchange::on_seek);
    curl_easy_setopt(curl_, CURLOPT_SEEKDATA, &x);
    curl_easy_setopt(curl_, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(rq.upload_len));
  } else if (method == "POST") {
    curl_easy_setopt(curl_, CURLOPT_POST, 1L);
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(rq.upload_len));
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDS, rq.upload ? rq.upload : "");
    headers.reset(curl_slist_append(headers.release(), "Content-Type: application/xml"));
  } else if (method != "GET") {
    curl_easy_setopt(curl_, CURLOPT_CUSTOMREQUEST, rq.method);
  }
  curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, headers.get());
  const CURLcode rc = curl_easy_perform(curl_);
  curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, nullptr);
  if (rc != CURLE_OK) {
    retryable = transport_retryable(rc);
    error = what + ": " + (x.overflow ? "reply larger than expected" : (errbuf[0] ? errbuf : curl_easy_strerror(rc)));
    return false;
  }
  curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &reply.status);
  curl_off_t length = -1;
  curl_easy_getinfo(curl_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  reply.content_length = length;
  // A 200 may still carry an error document (a failed multipart completion).
  const bool error_doc = !rq.into && reply.body.find("<Error>") != std::string::npos;
  if (reply.status / 100 == 2 && !error_doc) return true;
  std::string code;
  size_t at = 0;
  if (!xml_next(reply.body, "Code", at, code)) code = "no error code";
  retryable = reply.status >= 500 || (error_doc && reply.status / 100 == 2);
  error = what + ": HTTP " + std::to_string(reply.status) + " " + code;
  return false;
}

bool S3_Client::request(const Request& rq, Reply& reply, std::string& error) {
  bool retryable = false;
  if (attempt(rq, reply, error, retryable)) return true;
  for (unsigned delay_ms : exponential_backoff(endpoint_.retry_backoff_ms, endpoint_.retry_count, 30000, true)) {
    if (!retryable) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
    if (attempt(rq, reply, error, retryable)) {
      error.clear();  // the earlier attempts' reasons are history
      return true;
    }
  }
  return false;
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

ssize_t S3_Client::get_range(const std::string& key, uint64_t offset, void* buf, size_t len,
                             int64_t object_size, std::string& error) {
  if (offset >= static_cast<uint64_t>(object_size) || len == 0) return 0;
  len = static_cast<size_t>(std::min<uint64_t>(len, object_size - offset));
  Request rq;
  rq.key = key;
  rq.range = "bytes=" + std::to_string(offset) + "-" + std::to_string(offset + len - 1);
  rq.into = static_cast<char*>(buf);
  rq.into_len = len;
  Reply reply;
  if (!request(rq, reply, error)) return -1;
  if (reply.status != 206 && !(reply.status == 200 && offset == 0)) {
    return (error = "S3 GET " + key + ": the range was not honoured"), -1;
  }
  if (reply.content_length != static_cast<int64_t>(len)) {
    return (error = "S3 GET " + key + ": short range reply"), -1;
  }
  return static_cast<ssize_t>(len);
}

bool S3_Client::put(const std::string& key, const char* data, size_t len, std::string& error) {
  Request rq;
  rq.method = "PUT";
  rq.key = key;
  rq.upload = data;
  rq.upload_len = len;
  Reply reply;
  return request(rq, reply, error);
}

bool S3_Client::create_upload(const std::string& key, std::string& upload_id, std::string& error) {
  Request rq;
  rq.method = "POST";
  rq.key = key;
  rq.query = "uploads=";
  Reply reply;
  if (!request(rq, reply, error)) return false;
  size_t at = 0;
  if (!xml_next(reply.body, "UploadId", at, upload_id) || upload_id.empty()) {
    return (error = "S3 POST " + key + "?uploads: no upload id in the reply"), false;
  }
  return true;
}

bool S3_Client::upload_part(const std::string& key, const std::string& upload_id, unsigned part,
                            const char* data, size_t len, std::string& etag, std::string& error) {
  Request rq;
  rq.method = "PUT";
  rq.key = key;
  rq.query = "partNumber=" + std::to_string(part) + "&uploadId=" + escape(upload_id);
  rq.upload = data;
  rq.upload_len = len;
  Reply reply;
  if (!request(rq, reply, error)) return false;
  if (reply.etag.empty()) return (error = "S3 PUT " + key + ": part without an ETag"), false;
  etag = reply.etag;
  return true;
}

bool S3_Client::complete_upload(const std::string& key, const std::string& upload_id,
                                const std::vector<std::string>& etags, std::string& error) {
  std::string body = "<CompleteMultipartUpload>";
  for (size_t i = 0; i < etags.size(); ++i) {
    body += "<Part><PartNumber>" + std::to_string(i + 1) + "</PartNumber><ETag>" + etags[i] +
            "</ETag></Part>";
  }
  body += "</CompleteMultipartUpload>";
  Request rq;
  rq.method = "POST";
  rq.key = key;
  rq.query = "uploadId=" + escape(upload_id);
  rq.upload = body.data();
  rq.upload_len = body.size();
  Reply reply;
  return request(rq, reply, error);
}

bool S3_Client::abort_upload(const std::string& key, const std::string& upload_id, std::string& error) {
  Request rq;
  rq.method = "DELETE";
  rq.key = key;
  rq.query = "uploadId=" + escape(upload_id);
  Reply reply;
  return request(rq, reply, error) || reply.status == 404;
}

bool S3_Client::list(const std::string& prefix, std::vector<std::string>& names, std::string& error) {
  std::vector<std::string> found;
  std::string token;
  do {
    Request rq;
    rq.query = (token.empty() ? "" : "continuation-token=" + escape(token) + "&") +
               "list-type=2&prefix=" + escape(endpoint_.prefix + prefix);
    Reply reply;
    if (!request(rq, reply, error)) return false;
    std::string key, truncated;
    for (size_t at = 0; xml_next(reply.body, "Key", at, key);) {
      if (key.compare(0, endpoint_.prefix.size(), endpoint_.prefix) == 0) {
        found.push_back(key.substr(endpoint_.prefix.size()));
      }
    }
    size_t at = 0;
    token.clear();
    if (xml_next(reply.body, "IsTruncated", at, truncated) && truncated == "true") {
      at = 0;
      if (!xml_next(reply.body, "NextContinuationToken", at, token) || token.empty()) {
        return (error = "S3 listing truncated without a continuation token"), false;
      }
    }
  } while (!token.empty());
  std::sort(found.begin(), found.end());
  names.swap(found);
  return true;
}

bool S3_Client::create_bucket(std::string& error) {
  Request rq;
  rq.method = "PUT";
  Reply reply;
  if (request(rq, reply, error)) return true;
  std::string code;
  size_t at = 0;
  return xml_next(reply.body, "Code", at, code) && code == "BucketAlreadyOwnedByYou";
}
