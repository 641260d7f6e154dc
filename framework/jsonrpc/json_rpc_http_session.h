// JSON-RPC 2.0 over HTTP: each request is POSTed as a JSON body to one path of a
// shared HTTP_Session, and the body of the reply is the JSON-RPC reply. The reply is
// checked before it is handed back: well-formed, a result or an error, and answering
// the id that was sent.
// It shares ownership of its HTTP_Session; any thread may call it, and exchanges on the
// one session take turns (see http_session.h).
#pragma once

#include <string>

#include "framework/http/http_session.h"
#include "framework/http/json_exchange.h"
#include "framework/jsonrpc/json_rpc_session.h"

class JSON_RPC_HTTP_Session : public JSON_RPC_Session {
 public:
  // path: where the server takes JSON-RPC ("/d2/jr"). attempts: tries in all for one
  // request (at least 1); timeout: seconds they may take together (zero or less: no
  // limit). Retries follow the HTTP layer's rules (unreachable server, broken
  // connection, 5xx).
  JSON_RPC_HTTP_Session(HTTP_Session_Ptr session, const char* path, int attempts = 1,
                        int timeout = -1);

  // Pause before the first retry (doubling after each) for sessions made from now on;
  // 1000 ms unless the agent program sets another.
  static void default_retry_interval(unsigned milliseconds);
  static unsigned default_retry_interval();

  // This session's pause before the first retry.
  void retry_interval(unsigned milliseconds) { options_.policy.interval_ms = milliseconds; }

  JSON_RPC_Object_Ptr request(JSON_RPC_Object_Ptr request) override;

 private:
  JSON_RPC_Object_Ptr judge_reply(const JSON_RPC_Object& sent, const HTTP_Request& req,
                                  const json_spirit::Value& reply);

  HTTP_Session_Ptr session_;
  std::string path_;
  JSON_Exchange_Options options_;
};
