// The JSON side of an exchange, shared by JSON_RESTful_Client and JSON_HTTP_Session:
// write the body, send with retries, judge the reply, read it as JSON. Every failure
// is a false result with one LM_ERROR line that names the request.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/http/http_retry.h"
#include "framework/http/http_session.h"
#include "framework/json/generator.h"
#include "framework/json/value.h"

struct AGENTUTIL_API JSON_Exchange_Options {
  HTTP_Retry_Policy policy;
  // Fields sent with the request unless it has its own of the same name.
  HTTP_Headers headers;
  // Generator bodies: true sends them chunked as they are produced; false produces
  // the whole text first and sends it with a Content-Length (for servers that do
  // not take chunked bodies).
  bool streaming = true;
  // When set, a failure's reason goes here instead of to the log, for callers that
  // write one line of their own.
  std::string* failure = nullptr;
};

// `body` may be null (no body). `reply` may be null (the reply body is not read).
// A status other than 2xx is a failure; its body is still read into `reply` when it
// is JSON, since servers explain errors there. An empty 2xx body reads as null.
AGENTUTIL_API bool json_exchange(HTTP_Session& session, const JSON_Exchange_Options& options,
                                 HTTP_Request& request, const json_spirit::Value* body,
                                 HTTP_Response& response, json_spirit::Value* reply);

AGENTUTIL_API bool json_exchange(HTTP_Session& session, const JSON_Exchange_Options& options,
                                 HTTP_Request& request, json_spirit::JSON_Generator& body,
                                 HTTP_Response& response, json_spirit::Value* reply);
