// A connection to one HTTP server, shared by reference count (ACE_Intrusive_Auto_Ptr)
// between the objects that send through it. Exchanges on one session run one at a
// time (a kept-alive connection carries one request at a time anyway).
#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <atomic>
#include <mutex>
#include <string>

#include "framework/base/api.h"
#include "framework/http/curl_transport.h"
#include "framework/http/http_connection_settings.h"
#include "framework/http/http_headers.h"
#include "framework/http/http_request.h"
#include "framework/http/http_request_body.h"
#include "framework/http/http_response.h"

class AGENTUTIL_API HTTP_Session {
 public:
  explicit HTTP_Session(const HTTP_Connection_Settings& settings);
  virtual ~HTTP_Session() = default;
  HTTP_Session(const HTTP_Session&) = delete;
  HTTP_Session& operator=(const HTTP_Session&) = delete;

  // The reference count ACE_Intrusive_Auto_Ptr works with.
  static void intrusive_add_ref(HTTP_Session* s);
  static void intrusive_remove_ref(HTTP_Session* s);

  // Fields sent with every request of this session (an access key, say). Set them
  // up before the session is shared between threads.
  HTTP_Headers& headers() { return headers_; }
  const HTTP_Headers& headers() const { return headers_; }

  HTTP_Connection_Settings settings() const;
  // Re-aims the session; a connection to another endpoint is dropped.
  void settings(const HTTP_Connection_Settings& settings);
  void disconnect();

  // One attempt; see Curl_Transport::perform. Fields in `extra` come after the
  // session's own and before the request's: a later one of the same name wins.
  bool send(const HTTP_Request& request, const HTTP_Headers& extra,
            const HTTP_Request_Body& body, HTTP_Response& response, HTTP_Transport_Error& error);

  // New connections opened by the latest send().
  long last_new_connections() const;

  // "GET https://host:port/path?query", for messages about a request.
  std::string describe(const HTTP_Request& request) const;

 private:
  std::atomic<long> refs_{0};
  mutable std::mutex mutex_;
  Curl_Transport transport_;
  HTTP_Headers headers_;
};

using HTTP_Session_Ptr = ACE_Intrusive_Auto_Ptr<HTTP_Session>;
