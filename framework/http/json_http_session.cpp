#include "framework/http/json_http_session.h"

#include <ace/Log_Msg.h>

#include <algorithm>

JSON_HTTP_Session::JSON_HTTP_Session(HTTP_Session_Ptr session, int attempts, int timeout)
    : session_(session) {
  options_.policy.retries = std::max(attempts, 1) - 1;
  options_.policy.timeout = timeout;
}

bool JSON_HTTP_Session::exchange(HTTP_Request& req, int method, const Value* body,
                                 HTTP_Response& resp, Value* reply) {
  req.method(method);
  if (!session_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("No HTTP session to send '%C %C' on.\n"),
               http_method_string(method), req.target().c_str()));
    return false;
  }
  return json_exchange(*session_, options_, req, body, resp, reply);
}

bool JSON_HTTP_Session::get(HTTP_Request& req, HTTP_Response& resp, Value& reply) {
  return exchange(req, HTTP_GET, nullptr, resp, &reply);
}

bool JSON_HTTP_Session::post(HTTP_Request& req, const Value* body, HTTP_Response& resp,
                             Value* reply) {
  return exchange(req, HTTP_POST, body, resp, reply);
}

bool JSON_HTTP_Session::put(HTTP_Request& req, const Value* body, HTTP_Response& resp,
                            Value* reply) {
  return exchange(req, HTTP_PUT, body, resp, reply);
}

bool JSON_HTTP_Session::del(HTTP_Request& req, const Value* body, HTTP_Response& resp,
                            Value* reply) {
  return exchange(req, HTTP_DELETE, body, resp, reply);
}
