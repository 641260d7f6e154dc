#include "framework/http/json_restful_client.h"

#include <ace/Log_Msg.h>

#include "framework/http/http_options.h"
#include "framework/log/check.h"

namespace {

HTTP_Connection_Settings unaimed_settings(bool keep_alive) {
  HTTP_Connection_Settings s = HTTP_Options::instance()->defaults();
  s.host.clear();
  s.port = 0;
  s.keep_alive = keep_alive;
  return s;
}

HTTP_Connection_Settings make_settings(const char* host, unsigned short port, bool ssl,
                                       bool keep_alive, int connect_timeout,
                                       int transfer_timeout, int idle_timeout) {
  HTTP_Connection_Settings s;
  s.host = host ? host : "";
  s.port = port;
  s.ssl = ssl;
  s.keep_alive = keep_alive;
  s.connect_timeout = connect_timeout;
  s.transfer_timeout = transfer_timeout;
  s.idle_timeout = idle_timeout;
  return s;
}

}  // namespace

struct JSON_RESTful_Client::Call {
  HTTP_Session_Ptr session;
  JSON_Exchange_Options options;
};

JSON_RESTful_Client::JSON_RESTful_Client(const char* host, unsigned short port, bool ssl,
                                         bool keep_alive, int connect_timeout,
                                         int transfer_timeout, int idle_timeout, int retries)
    : JSON_RESTful_Client(make_settings(host, port, ssl, keep_alive, connect_timeout,
                                        transfer_timeout, idle_timeout),
                          retries) {}

JSON_RESTful_Client::JSON_RESTful_Client(bool keep_alive)
    : JSON_RESTful_Client(unaimed_settings(keep_alive)) {}

JSON_RESTful_Client::JSON_RESTful_Client(const HTTP_Connection_Settings& settings, int retries)
    : session_(new HTTP_Session(settings)) {
  options_.policy.retries = retries;
}

JSON_RESTful_Client::Call JSON_RESTful_Client::begin_call(HTTP_Request& req, int method) {
  req.method(method);
  std::lock_guard<std::mutex> lock(mutex_);
  refresh();
  return Call{session_, options_};
}

bool JSON_RESTful_Client::exchange(HTTP_Request& req, int method, const Value* body,
                                   HTTP_Response& resp, Value* reply) {
  Call call = begin_call(req, method);
  return json_exchange(*call.session, call.options, req, body, resp, reply);
}

bool JSON_RESTful_Client::get_unlogged(HTTP_Request& req, HTTP_Response& resp, Value* reply,
                                       std::string& why) {
  Call call = begin_call(req, HTTP_GET);
  call.options.failure = &why;
  return json_exchange(*call.session, call.options, req, nullptr, resp, reply);
}

bool JSON_RESTful_Client::exchange(HTTP_Request& req, JSON_Generator& body, HTTP_Response& resp,
                                   Value* reply) {
  Call call = begin_call(req, HTTP_POST);
  return json_exchange(*call.session, call.options, req, body, resp, reply);
}

bool JSON_RESTful_Client::exchange_path(const char* path, int method, const Value* body,
                                        Value* reply) {
  if (AU_IS_NULL_OR_EMPTY(path)) return false;
  HTTP_Request req(method, path, true);
  HTTP_Response resp;
  return exchange(req, method, body, resp, reply);
}

bool JSON_RESTful_Client::get(HTTP_Request& req, HTTP_Response& resp, Value* reply) {
  return exchange(req, HTTP_GET, nullptr, resp, reply);
}

bool JSON_RESTful_Client::get(HTTP_Request& req, Value* reply) {
  HTTP_Response resp;
  return get(req, resp, reply);
}

bool JSON_RESTful_Client::get(const char* path, Value* reply) {
  return exchange_path(path, HTTP_GET, nullptr, reply);
}

bool JSON_RESTful_Client::post(HTTP_Request& req, const Value* body, HTTP_Response& resp,
                               Value* reply) {
  return exchange(req, HTTP_POST, body, resp, reply);
}

bool JSON_RESTful_Client::post(HTTP_Request& req, const Value* body, Value* reply) {
  HTTP_Response resp;
  return post(req, body, resp, reply);
}

bool JSON_RESTful_Client::post(const char* path, const Value* body, Value* reply) {
  return exchange_path(path, HTTP_POST, body, reply);
}

bool JSON_RESTful_Client::post(HTTP_Request& req, JSON_Generator& body, HTTP_Response& resp,
                               Value* reply) {
  return exchange(req, body, resp, reply);
}

bool JSON_RESTful_Client::post(HTTP_Request& req, JSON_Generator& body, Value* reply) {
  HTTP_Response resp;
  return exchange(req, body, resp, reply);
}

bool JSON_RESTful_Client::put(HTTP_Request& req, const Value* body, HTTP_Response& resp,
                              Value* reply) {
  return exchange(req, HTTP_PUT, body, resp, reply);
}

bool JSON_RESTful_Client::put(HTTP_Request& req, const Value* body, Value* reply) {
  HTTP_Response resp;
  return put(req, body, resp, reply);
}

bool JSON_RESTful_Client::put(const char* path, const Value* body, Value* reply) {
  return exchange_path(path, HTTP_PUT, body, reply);
}

bool JSON_RESTful_Client::del(HTTP_Request& req, const Value* body, HTTP_Response& resp,
                              Value* reply) {
  return exchange(req, HTTP_DELETE, body, resp, reply);
}

bool JSON_RESTful_Client::del(HTTP_Request& req, const Value* body, Value* reply) {
  HTTP_Response resp;
  return del(req, body, resp, reply);
}

bool JSON_RESTful_Client::del(HTTP_Request& req) { return del(req, nullptr, nullptr); }

bool JSON_RESTful_Client::del(const char* path) {
  return exchange_path(path, HTTP_DELETE, nullptr, nullptr);
}

void JSON_RESTful_Client::retries(int n) {
  std::lock_guard<std::mutex> lock(mutex_);
  options_.policy.retries = n;
}

int JSON_RESTful_Client::retries() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return options_.policy.retries;
}

void JSON_RESTful_Client::retry_timeout(int seconds) {
  std::lock_guard<std::mutex> lock(mutex_);
  options_.policy.timeout = seconds;
}

void JSON_RESTful_Client::retry_interval(unsigned milliseconds) {
  std::lock_guard<std::mutex> lock(mutex_);
  options_.policy.interval_ms = milliseconds;
}

bool JSON_RESTful_Client::set_header(int id, const char* value) {
  std::lock_guard<std::mutex> lock(mutex_);
  return options_.headers.put(id, value, true);
}

bool JSON_RESTful_Client::set_header(const char* name, const char* value) {
  std::lock_guard<std::mutex> lock(mutex_);
  return options_.headers.put(name, value, true);
}

void JSON_RESTful_Client::streaming(bool on) {
  std::lock_guard<std::mutex> lock(mutex_);
  options_.streaming = on;
}

bool JSON_RESTful_Client::streaming() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return options_.streaming;
}

void JSON_RESTful_Client::verify_peer(bool on) {
  change_settings([on](HTTP_Connection_Settings& s) { s.verify_peer = on; });
}

void JSON_RESTful_Client::ca_file(const char* path) {
  change_settings([path](HTTP_Connection_Settings& s) { s.ca_file = path ? path : ""; });
}

void JSON_RESTful_Client::max_reply_bytes(std::uint64_t bytes) {
  change_settings([bytes](HTTP_Connection_Settings& s) { s.max_reply_bytes = bytes; });
}

void JSON_RESTful_Client::reset() {
  std::lock_guard<std::mutex> lock(mutex_);
  session_->disconnect();
}

void JSON_RESTful_Client::reset(const char* host, unsigned short port, bool ssl) {
  change_settings([host, port, ssl](HTTP_Connection_Settings& s) {
    s.host = host ? host : "";
    s.port = port;
    s.ssl = ssl;
  });
}

HTTP_Connection_Settings JSON_RESTful_Client::settings() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return session_->settings();
}

void JSON_RESTful_Client::apply_settings(const HTTP_Connection_Settings& settings) {
  if (session_->settings() != settings) session_->settings(settings);
}
