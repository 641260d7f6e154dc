// A JSON REST client for one server: JSON bodies out, JSON replies in, over one
// kept-alive connection, with bounded retries.
//
//   JSON_RESTful_Client client("10.0.0.5", 8088, true, true, 120, 120, 120, 5);
//   HTTP_Request req(HTTP_GET, "/deviceManager/rest/xxxxx/lun?range=[0-100]", false);
//   json_spirit::Value reply;
//   if (!client.get(req, &reply)) return false;   // the client has logged why
//
// Every call is true only for a 2xx reply that (when a reply value is asked for) is
// JSON; anything else is false with one LM_ERROR line. An empty 2xx body reads as
// null. For a non-2xx reply the body is still read into the reply value when it is
// JSON (servers explain errors there) and the response carries the status.
//
// get/post/put/del set the request's method to their own. A client may be shared
// between threads: its exchanges are serialised on its connection.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "framework/base/api.h"
#include "framework/http/http_connection_settings.h"
#include "framework/http/http_request.h"
#include "framework/http/http_response.h"
#include "framework/http/http_session.h"
#include "framework/http/json_exchange.h"
#include "framework/json/generator.h"
#include "framework/json/value.h"

class AGENTUTIL_API JSON_RESTful_Client {
 public:
  using Value = json_spirit::Value;
  using JSON_Generator = json_spirit::JSON_Generator;

  // keep_alive: reuse the connection between requests. The three time limits are
  // seconds (zero or less: none): until connected, for the whole exchange, and the
  // longest stretch without a byte moving. retries: attempts after a failed first
  // one (transport failures and 5xx replies only). Certificates are verified; see
  // verify_peer() and ca_file().
  JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool keep_alive = true,
                      int connect_timeout = 30, int transfer_timeout = 0, int idle_timeout = 120,
                      int retries = 0);
  // Aimed at no server until reset(host, port, ssl); time limits and certificate
  // checks from HTTP_Options' process-wide defaults as they are now.
  explicit JSON_RESTful_Client(bool keep_alive);
  virtual ~JSON_RESTful_Client() = default;
  JSON_RESTful_Client(const JSON_RESTful_Client&) = delete;
  JSON_RESTful_Client& operator=(const JSON_RESTful_Client&) = delete;

  bool get(HTTP_Request& req, HTTP_Response& resp, Value* reply);
  bool get(HTTP_Request& req, Value* reply);
  bool get(const char* path, Value* reply);
  // As get(), but logs nothing: the reason of a failure goes to `why`, for a caller
  // that writes one line of its own.
  bool get_unlogged(HTTP_Request& req, HTTP_Response& resp, Value* reply, std::string& why);

  bool post(HTTP_Request& req, const Value* body, HTTP_Response& resp, Value* reply);
  bool post(HTTP_Request& req, const Value* body, Value* reply);
  bool post(const char* path, const Value* body, Value* reply);
  // The body as the generator produces it (see streaming()).
  bool post(HTTP_Request& req, JSON_Generator& body, HTTP_Response& resp, Value* reply);
  bool post(HTTP_Request& req, JSON_Generator& body, Value* reply);

  bool put(HTTP_Request& req, const Value* body, HTTP_Response& resp, Value* reply);
  bool put(HTTP_Request& req, const Value* body, Value* reply);
  bool put(const char* path, const Value* body, Value* reply);

  bool del(HTTP_Request& req, const Value* body, HTTP_Response& resp, Value* reply);
  bool del(HTTP_Request& req, const Value* body, Value* reply);
  bool del(HTTP_Request& req);
  bool del(const char* path);

  // Attempts after a failed first one; bounded by HTTP_Retry_Policy::MAX_RETRIES.
  void retries(int n);
  int retries() const;
  // Seconds all attempts of one call may take together; zero or less: no limit.
  void retry_timeout(int seconds);
  // Pause before the first retry (doubling after each); 1000 ms unless set.
  void retry_interval(unsigned milliseconds);

  // A field sent with every request (by id of http_header_ids.h, or by name);
  // a field of the same name on the request itself wins.
  bool set_header(int id, const char* value);
  bool set_header(const char* name, const char* value);

  // Generator bodies chunked as produced (true, the default) or produced whole and
  // sent with a Content-Length (false).
  void streaming(bool on);
  bool streaming() const;

  void verify_peer(bool on);
  void ca_file(const char* path);
  void max_reply_bytes(std::uint64_t bytes);

  // Drops the kept-alive connection.
  void reset();
  // Aims the client at another server (same time limits and headers).
  void reset(const char* host, unsigned short port, bool ssl);

  HTTP_Connection_Settings settings() const;

 protected:
  explicit JSON_RESTful_Client(const HTTP_Connection_Settings& settings, int retries = 0);

  // Runs under the client's lock before each call; a subclass brings the settings
  // and headers up to date there.
  virtual void refresh() {}
  void apply_settings(const HTTP_Connection_Settings& settings);
  HTTP_Headers& default_headers() { return options_.headers; }

 private:
  struct Call;
  Call begin_call(HTTP_Request& req, int method);
  bool exchange(HTTP_Request& req, int method, const Value* body, HTTP_Response& resp, Value* reply);
  bool exchange(HTTP_Request& req, JSON_Generator& body, HTTP_Response& resp, Value* reply);
  bool exchange_path(const char* path, int method, const Value* body, Value* reply);
  template <class Change>
  void change_settings(Change change) {
    std::lock_guard<std::mutex> lock(mutex_);
    HTTP_Connection_Settings s = session_->settings();
    change(s);
    session_->settings(s);
  }

  mutable std::mutex mutex_;
  HTTP_Session_Ptr session_;
  JSON_Exchange_Options options_;
};
