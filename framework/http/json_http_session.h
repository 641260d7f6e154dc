// JSON exchanges over a shared HTTP_Session, with the attempts and the time budget
// fixed when it is made. Replies are judged as by JSON_RESTful_Client: a 2xx reply
// that is JSON where one is asked for, else false with one LM_ERROR line.
// It shares ownership of its HTTP_Session; any thread may call it, and exchanges on the
// one session take turns (see http_session.h).
#pragma once

#include "framework/base/api.h"
#include "framework/http/http_session.h"
#include "framework/http/json_exchange.h"
#include "framework/json/value.h"

class AGENTUTIL_API JSON_HTTP_Session {
 public:
  using Value = json_spirit::Value;

  // attempts: tries in all for one call (at least 1); timeout: seconds they may take
  // together (zero or less: no limit).
  explicit JSON_HTTP_Session(HTTP_Session_Ptr session = HTTP_Session_Ptr(), int attempts = 1,
                             int timeout = -1);

  void reset(HTTP_Session_Ptr session) { session_ = session; }
  explicit operator bool() const { return session_.get() != nullptr; }
  HTTP_Session_Ptr session() const { return session_; }

  // Pause before the first retry (doubling after each); 1000 ms unless set.
  void retry_interval(unsigned milliseconds) { options_.policy.interval_ms = milliseconds; }

  bool get(HTTP_Request& req, HTTP_Response& resp, Value& reply);
  bool post(HTTP_Request& req, const Value* body, HTTP_Response& resp, Value* reply);
  bool put(HTTP_Request& req, const Value* body, HTTP_Response& resp, Value* reply);
  bool del(HTTP_Request& req, const Value* body, HTTP_Response& resp, Value* reply);

 private:
  bool exchange(HTTP_Request& req, int method, const Value* body, HTTP_Response& resp,
                Value* reply);

  HTTP_Session_Ptr session_;
  JSON_Exchange_Options options_;
};
