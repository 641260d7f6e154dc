#include "framework/jsonrpc/json_rpc_http_session.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <atomic>

#include "framework/json/writer.h"

namespace {

JSON_RPC_Object_Ptr refuse(const std::string& method, const std::string& target,
                           const std::string& why) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("JSON-RPC reply to '%C' from '%C' is not valid: %C.\n"),
             method.c_str(), target.c_str(), why.c_str()));
  return JSON_RPC_Object_Ptr();
}

std::atomic<unsigned> default_interval_ms{1000};

// Servers answer a request they could not even read with an error of id null.
bool answers(const JSON_RPC_Object& sent, const JSON_RPC_Object& reply) {
  if (reply.id == sent.id) return true;
  return reply.kind == JSON_RPC_Object::KIND_ERROR && reply.id.is_null();
}

}  // namespace

JSON_RPC_HTTP_Session::JSON_RPC_HTTP_Session(HTTP_Session_Ptr session, const char* path,
                                             int attempts, int timeout)
    : session_(session), path_(path != nullptr && *path != '\0' ? path : "/") {
  options_.policy.retries = std::max(attempts, 1) - 1;
  options_.policy.timeout = timeout;
  options_.policy.interval_ms = default_interval_ms.load();
  // Every request object is written whole before it goes.
  options_.streaming = false;
}

void JSON_RPC_HTTP_Session::default_retry_interval(unsigned milliseconds) {
  default_interval_ms = milliseconds;
}

unsigned JSON_RPC_HTTP_Session::default_retry_interval() { return default_interval_ms.load(); }

JSON_RPC_Object_Ptr JSON_RPC_HTTP_Session::request(JSON_RPC_Object_Ptr request) {
  if (request.get() == nullptr || request->kind != JSON_RPC_Object::KIND_REQUEST) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("JSON-RPC over HTTP to '%C' sends requests only, got kind "
                                  "%d.\n"),
               path_.c_str(), request.get() == nullptr ? -1 : request->kind));
    return JSON_RPC_Object_Ptr();
  }
  if (session_.get() == nullptr) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("No HTTP session to send JSON-RPC request '%C' on.\n"),
               request->method.c_str()));
    return JSON_RPC_Object_Ptr();
  }
  HTTP_Request req(HTTP_POST, path_.c_str(), true);
  HTTP_Response resp;
  json_spirit::Value reply;
  const json_spirit::Value body = request->to_json();
  if (!json_exchange(*session_, options_, req, &body, resp, &reply)) return JSON_RPC_Object_Ptr();
  return judge_reply(*request, req, reply);
}

JSON_RPC_Object_Ptr JSON_RPC_HTTP_Session::judge_reply(const JSON_RPC_Object& sent,
                                                       const HTTP_Request& req,
                                                       const json_spirit::Value& reply) {
  const std::string target = session_->describe(req);
  if (reply.is_null())
    return refuse(sent.method, target, "the body is empty or null");
  std::string why;
  JSON_RPC_Object_Ptr answer(new JSON_RPC_Object);
  if (!answer->from_json(reply, why))
    return refuse(sent.method, target, why);
  if (answer->kind != JSON_RPC_Object::KIND_RESULT && answer->kind != JSON_RPC_Object::KIND_ERROR)
    return refuse(sent.method, target, "it is a call, not a reply");
  if (!answers(sent, *answer))
    return refuse(sent.method, target, "it answers id " + json_spirit::write(answer->id) + ", not " +
                              json_spirit::write(sent.id));
  return answer;
}
