// One libcurl easy handle and the connection it keeps alive between requests. Not
// thread-safe: the owner (HTTP_Session) runs one exchange at a time.
#pragma once

#include <string>

#include "framework/http/http_connection_settings.h"
#include "framework/http/http_request.h"
#include "framework/http/http_request_body.h"
#include "framework/http/http_response.h"

typedef void CURL;

struct HTTP_Transport_Error {
  // Worth another attempt: the server could not be reached or the connection broke.
  // Refusals that would repeat (bad certificate, reply too large, bad URL) are not.
  bool retryable = false;
  // No connection was made (refused, unresolvable): the server provably never saw it.
  bool not_sent = false;
  std::string message;
};

class Curl_Transport {
 public:
  explicit Curl_Transport(const HTTP_Connection_Settings& settings);
  ~Curl_Transport();
  Curl_Transport(const Curl_Transport&) = delete;
  Curl_Transport& operator=(const Curl_Transport&) = delete;

  const HTTP_Connection_Settings& settings() const { return settings_; }
  // New settings; a connection to another endpoint is dropped.
  void settings(const HTTP_Connection_Settings& settings);
  // Closes the kept-alive connection; the next request connects afresh.
  void disconnect();

  // One exchange. `extra` fields go out unless the request has a field of the same
  // name. True when a reply arrived, whatever its status; false with `error` set.
  bool perform(const HTTP_Request& request, const HTTP_Headers& extra,
               const HTTP_Request_Body& body, HTTP_Response& response,
               HTTP_Transport_Error& error);

  // New connections opened by the last perform() (0 when a kept one was reused).
  long last_new_connections() const { return last_new_connections_; }

 private:
  struct Exchange;
  bool prepare(Exchange& x, const HTTP_Request& request, const HTTP_Headers& extra,
               const HTTP_Request_Body& body);
  void set_connection_options(Exchange& x);
  bool set_method_and_body(Exchange& x, int method, const HTTP_Request_Body& body);
  void release_exchange();

  HTTP_Connection_Settings settings_;
  CURL* curl_ = nullptr;
  long last_new_connections_ = 0;
};
