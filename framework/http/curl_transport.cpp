#include "framework/http/curl_transport.h"

#include <curl/curl.h>
#include <strings.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>

#include "framework/http/curl_error_kind.h"
#include "framework/http/curl_global.h"

namespace {

// A reply's header block is small; a server that sends more is not one we talk to.
constexpr std::size_t MAX_HEADER_BYTES = 1 << 20;
const char* const USER_AGENT = "libagentutil";

using Header_List = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

constexpr std::chrono::milliseconds CONNECT_RETRY_PAUSE(200);

std::string trim(const char* begin, const char* end) {
  while (begin < end && (*begin == ' ' || *begin == '\t')) ++begin;
  while (end > begin && (end[-1] == ' ' || end[-1] == '\t' || end[-1] == '\r' || end[-1] == '\n'))
    --end;
  return std::string(begin, end);
}

bool append_header(curl_slist*& list, const std::string& name, const std::string& value) {
  // "Name;" is curl's way to send a field with an empty value.
  const std::string line = value.empty() ? name + ";" : name + ": " + value;
  curl_slist* grown = curl_slist_append(list, line.c_str());
  if (grown == nullptr) return false;
  list = grown;
  return true;
}

}  // namespace

// Everything one perform() needs in the callbacks.
struct Curl_Transport::Exchange {
  HTTP_Response* response = nullptr;
  HTTP_Body_Source* source = nullptr;
  std::uint64_t max_reply_bytes = 0;
  std::size_t header_bytes = 0;
  bool reply_too_large = false;
  bool source_failed = false;
  Header_List headers{nullptr, &curl_slist_free_all};
  std::string url;
  char error[CURL_ERROR_SIZE] = {0};

  static size_t on_body(char* data, size_t size, size_t count, void* self);
  static size_t on_header(char* data, size_t size, size_t count, void* self);
  static size_t on_read(char* buf, size_t size, size_t count, void* self);
  static int on_seek(void* self, curl_off_t offset, int origin);
};

size_t Curl_Transport::Exchange::on_body(char* data, size_t size, size_t count, void* self) {
  auto* x = static_cast<Exchange*>(self);
  const size_t n = size * count;
  std::string& body = x->response->body();
  if (body.size() + n > x->max_reply_bytes) {
    x->reply_too_large = true;
    return 0;  // makes curl stop with CURLE_WRITE_ERROR
  }
  body.append(data, n);
  return n;
}

size_t Curl_Transport::Exchange::on_header(char* data, size_t size, size_t count, void* self) {
  auto* x = static_cast<Exchange*>(self);
  const size_t n = size * count;
  x->header_bytes += n;
  if (x->header_bytes > MAX_HEADER_BYTES) {
    x->reply_too_large = true;
    return 0;
  }
  // A status line starts a new header block (after "100 Continue" and the like):
  // only the final reply's fields are kept.
  if (n >= 5 && std::strncmp(data, "HTTP/", 5) == 0) {
    x->response->headers().clear();
    return n;
  }
  const char* colon = static_cast<const char*>(std::memchr(data, ':', n));
  if (colon == nullptr) return n;  // the blank line, or junk we ignore
  const std::string name = trim(data, colon);
  const std::string value = trim(colon + 1, data + n);
  // Fields a well-behaved server never sends are dropped quietly, not logged.
  if (HTTP_Headers::valid_name(name.c_str()) && HTTP_Headers::valid_value(value.c_str()))
    x->response->headers().put(name, value, false);
  return n;
}

size_t Curl_Transport::Exchange::on_read(char* buf, size_t size, size_t count, void* self) {
  auto* x = static_cast<Exchange*>(self);
  const long n = x->source->read(buf, size * count);
  if (n < 0) {
    x->source_failed = true;
    return CURL_READFUNC_ABORT;
  }
  return static_cast<size_t>(n);
}

int Curl_Transport::Exchange::on_seek(void* self, curl_off_t offset, int origin) {
  auto* x = static_cast<Exchange*>(self);
  if (offset == 0 && origin == SEEK_SET && x->source->rewind()) return CURL_SEEKFUNC_OK;
  return CURL_SEEKFUNC_CANTSEEK;
}

Curl_Transport::Curl_Transport(const HTTP_Connection_Settings& settings) : settings_(settings) {
  ensure_curl_global_init();
}

Curl_Transport::~Curl_Transport() { disconnect(); }

void Curl_Transport::disconnect() {
  if (curl_ != nullptr) curl_easy_cleanup(curl_);
  curl_ = nullptr;
}

void Curl_Transport::settings(const HTTP_Connection_Settings& settings) {
  if (!settings_.same_endpoint(settings)) disconnect();
  settings_ = settings;
}

void Curl_Transport::release_exchange() {
  // The handle outlives the exchange: it must not point into it any more.
  if (curl_ == nullptr) return;
  curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, nullptr);
  curl_easy_setopt(curl_, CURLOPT_ERRORBUFFER, nullptr);
  curl_easy_setopt(curl_, CURLOPT_WRITEDATA, nullptr);
  curl_easy_setopt(curl_, CURLOPT_HEADERDATA, nullptr);
  curl_easy_setopt(curl_, CURLOPT_READDATA, nullptr);
  curl_easy_setopt(curl_, CURLOPT_SEEKDATA, nullptr);
}

void Curl_Transport::set_connection_options(Exchange& x) {
  const HTTP_Connection_Settings& s = settings_;
  curl_easy_setopt(curl_, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl_, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_easy_setopt(curl_, CURLOPT_USERAGENT, USER_AGENT);
  curl_easy_setopt(curl_, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(curl_, CURLOPT_FORBID_REUSE, s.keep_alive ? 0L : 1L);
  curl_easy_setopt(curl_, CURLOPT_SSL_VERIFYPEER, s.verify_peer ? 1L : 0L);
  curl_easy_setopt(curl_, CURLOPT_SSL_VERIFYHOST, s.verify_peer ? 2L : 0L);
  if (!s.ca_file.empty()) curl_easy_setopt(curl_, CURLOPT_CAINFO, s.ca_file.c_str());
  if (s.connect_timeout > 0)
    curl_easy_setopt(curl_, CURLOPT_CONNECTTIMEOUT, static_cast<long>(s.connect_timeout));
  if (s.transfer_timeout > 0)
    curl_easy_setopt(curl_, CURLOPT_TIMEOUT, static_cast<long>(s.transfer_timeout));
  if (s.idle_timeout > 0) {
    curl_easy_setopt(curl_, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl_, CURLOPT_LOW_SPEED_TIME, static_cast<long>(s.idle_timeout));
  }
  curl_easy_setopt(curl_, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(x.max_reply_bytes));
  curl_easy_setopt(curl_, CURLOPT_ERRORBUFFER, x.error);
  curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, &Exchange::on_body);
  curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &x);
  curl_easy_setopt(curl_, CURLOPT_HEADERFUNCTION, &Exchange::on_header);
  curl_easy_setopt(curl_, CURLOPT_HEADERDATA, &x);
}

bool Curl_Transport::set_method_and_body(Exchange& x, int method, const HTTP_Request_Body& body) {
  if (!http_method_is_known(method)) return false;
  if (method == HTTP_HEAD) {
    curl_easy_setopt(curl_, CURLOPT_NOBODY, 1L);
    return body.empty();
  }
  if (method == HTTP_GET && body.empty()) {
    curl_easy_setopt(curl_, CURLOPT_HTTPGET, 1L);
    return true;
  }
  if (method != HTTP_POST) curl_easy_setopt(curl_, CURLOPT_CUSTOMREQUEST, http_method_string(method));
  if (body.source() != nullptr) {
    x.source = body.source();
    curl_easy_setopt(curl_, CURLOPT_POST, 1L);
    curl_easy_setopt(curl_, CURLOPT_READFUNCTION, &Exchange::on_read);
    curl_easy_setopt(curl_, CURLOPT_READDATA, &x);
    curl_easy_setopt(curl_, CURLOPT_SEEKFUNCTION, &Exchange::on_seek);
    curl_easy_setopt(curl_, CURLOPT_SEEKDATA, &x);
    // Unknown length: HTTP/1.1 chunked encoding.
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(-1));
  } else if (body.text() != nullptr) {
    curl_easy_setopt(curl_, CURLOPT_POST, 1L);
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(body.text()->size()));
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDS, body.text()->data());
  } else if (method == HTTP_POST || method == HTTP_PUT || method == HTTP_PATCH) {
    // No body, but say so: "Content-Length: 0".
    curl_easy_setopt(curl_, CURLOPT_POST, 1L);
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(0));
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDS, "");
  }
  return true;
}

bool Curl_Transport::prepare(Exchange& x, const HTTP_Request& request, const HTTP_Headers& extra,
                             const HTTP_Request_Body& body) {
  if (curl_ == nullptr) curl_ = curl_easy_init();
  if (curl_ == nullptr) return false;
  // Reset drops every option but keeps the live connection, so each request starts
  // from the same known state.
  curl_easy_reset(curl_);
  x.url = settings_.base_url() + request.target();
  x.max_reply_bytes = settings_.max_reply_bytes;
  set_connection_options(x);
  curl_easy_setopt(curl_, CURLOPT_URL, x.url.c_str());
  if (!set_method_and_body(x, request.method(), body)) return false;

  curl_slist* list = nullptr;
  bool ok = true;
  for (const auto& field : extra)
    if (request.headers().get(field.first.c_str()) == nullptr)
      ok = ok && append_header(list, field.first, field.second);
  for (const auto& field : request.headers()) ok = ok && append_header(list, field.first, field.second);
  // No "Expect: 100-continue" round trip before bodies.
  curl_slist* grown = curl_slist_append(list, "Expect:");
  if (grown != nullptr) list = grown;
  x.headers.reset(list);
  curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, list);
  return ok && grown != nullptr;
}

bool Curl_Transport::perform(const HTTP_Request& request, const HTTP_Headers& extra,
                             const HTTP_Request_Body& body, HTTP_Response& response,
                             HTTP_Transport_Error& error) {
  response.clear();
  error = HTTP_Transport_Error();
  last_new_connections_ = 0;
  Exchange x;
  x.response = &response;
  if (request.uri().empty() || request.uri()[0] != '/') {
    error.message = "the request path does not begin with \"/\"";
    return false;
  }
  if (!prepare(x, request, extra, body)) {
    release_exchange();
    error.message = http_method_is_known(request.method())
                        ? "cannot set up the request"
                        : "unsupported method";
    return false;
  }
  CURLcode rc = curl_easy_perform(curl_);
  for (int attempt = 1; attempt < settings_.connect_attempts && curl_error_is_unsent(rc); ++attempt) {
    std::this_thread::sleep_for(CONNECT_RETRY_PAUSE * attempt);
    x.error[0] = '\0';
    rc = curl_easy_perform(curl_);
  }
  curl_easy_getinfo(curl_, CURLINFO_NUM_CONNECTS, &last_new_connections_);
  release_exchange();
  if (rc == CURLE_OK) {
    long status = 0;
    curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &status);
    response.status(static_cast<int>(status));
    return true;
  }
  response.body().clear();
  if (x.reply_too_large || rc == CURLE_FILESIZE_EXCEEDED) {
    error.message = "the reply is larger than " + std::to_string(x.max_reply_bytes) + " bytes";
  } else if (x.source_failed) {
    error.message = "the request body could not be produced";
  } else {
    error.retryable = curl_error_is_transient(rc);
    error.not_sent = curl_error_is_unsent(rc);
    error.message = (x.error[0] ? std::string(x.error) : std::string(curl_easy_strerror(rc))) +
                    " (curl code " + std::to_string(static_cast<int>(rc)) + ")";
  }
  return false;
}
