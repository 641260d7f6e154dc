#include "utils/agent/json_rpc_channel_forward.h"

#include <ace/Log_Msg.h>

#include "framework/http/host_manager.h"
#include "framework/http/http_header_ids.h"
#include "framework/http/http_options.h"
#include "framework/http/http_session_factory.h"
#include "framework/jsonrpc/json_rpc_http_session.h"
#include "framework/jsonrpc/json_rpc_id_generator.h"
#include "framework/log/check.h"

namespace {

const char* const FORWARD_METHOD = "channel.forward";
const char* const JSON_RPC_PATH = "/d2/jr";
const int RPC_ATTEMPTS = 5;
const int RPC_TIMEOUT_SECONDS = 300;
const int SESSION_TIMEOUT_SECONDS = 120;

json_spirit::Value forward_params(const std::string& channel_id, const std::string& method,
                                  const json_spirit::Value& params) {
  json_spirit::Object call{{"method", method}, {"params", params}};
  return json_spirit::Object{
      {"channel_id", channel_id}, {"channel_type", "agent"}, {"jsonrpc_request", std::move(call)}};
}

HTTP_Session_Ptr open_session(const Backupd_Info& info) {
  if (info.host.empty()) return Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::Backupd, nullptr, 0);
  return HTTP_Session_Factory::create(info.host.c_str(), info.port, info.ssl, nullptr, 3, nullptr,
                                      false, SESSION_TIMEOUT_SECONDS, SESSION_TIMEOUT_SECONDS,
                                      SESSION_TIMEOUT_SECONDS, 0);
}

// Judges the reply; steps in the order that keeps "no result wanted" ahead of the
// kind check, so any reply but an error satisfies such a caller.
bool take_reply(const JSON_RPC_Object& reply, const std::string& method,
                const std::string& channel_id, json_spirit::Value* result,
                json_spirit::Value_type expected_type) {
  if (reply.kind == JSON_RPC_Object::KIND_ERROR) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("channel.forward failed, method %C, channel_id %C, code %d: %C.\n"),
               method.c_str(), channel_id.c_str(), reply.error_code, reply.error_message.c_str()));
    return false;
  }
  if (result == nullptr) return true;
  if (reply.kind != JSON_RPC_Object::KIND_RESULT) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("channel.forward failed, method %C, channel_id %C, response type %d\n"),
               method.c_str(), channel_id.c_str(), reply.kind));
    return false;
  }
  if (reply.result.type() != expected_type) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("channel.forward failed, method %C, channel_id %C, expected %d, got %d\n"),
               method.c_str(), channel_id.c_str(), static_cast<int>(expected_type),
               static_cast<int>(reply.result.type())));
    return false;
  }
  *result = reply.result;
  return true;
}

}  // namespace

void Backupd_Info::load() {
  const HTTP_Server_Address address = HTTP_Options::instance()->backupd();
  host = address.host;
  port = address.port;
  ssl = address.ssl;
  access_key = Host_Manager::instance()->access_key();
}

bool json_rpc_forward(const Backupd_Info& info, Basic_String_Arg<char> method,
                      const json_spirit::Value& params, json_spirit::Value* result,
                      json_spirit::Value_type expected_type) {
  if (AU_IS_EMPTY(method)) return false;
  if (AU_IS_EMPTY(info.channel_id)) return false;
  JSON_RPC_Object_Ptr request;
  if (!JSON_RPC_Session::make_rpc_request(
          FORWARD_METHOD, forward_params(info.channel_id, method.str(), params), request))
    return false;
  JSON_RPC_Id_Generator::gen(*request);
  request->kind = JSON_RPC_Object::KIND_REQUEST;

  HTTP_Session_Ptr session = open_session(info);
  if (session.get() == nullptr) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create http session.\n")));
    return false;
  }
  if (!info.access_key.empty())
    session->headers().put(HTTP_HEADER_ACCESS_KEY, info.access_key.c_str(), true);

  JSON_RPC_HTTP_Session rpc(session, JSON_RPC_PATH, RPC_ATTEMPTS, RPC_TIMEOUT_SECONDS);
  JSON_RPC_Object_Ptr reply = rpc.request(request);
  if (reply.get() == nullptr) return false;
  return take_reply(*reply, method.str(), info.channel_id, result, expected_type);
}

bool json_rpc_forward(Basic_String_Arg<char> method, const json_spirit::Value& params,
                      Basic_String_Arg<char> channel_id, json_spirit::Value* result,
                      json_spirit::Value_type expected_type) {
  Backupd_Info info;
  info.channel_id = channel_id.str();
  return json_rpc_forward(info, method, params, result, expected_type);
}
