#include "framework/jsonrpc/json_rpc_session.h"

#include <ace/Log_Msg.h>

#include "framework/log/check.h"

bool JSON_RPC_Session::make_rpc_request(const char* method, const json_spirit::Value& params,
                                        JSON_RPC_Object_Ptr& out) {
  if (AU_IS_NULL_OR_EMPTY(method)) return false;
  const json_spirit::Value_type type = params.type();
  if (type != json_spirit::obj_type && type != json_spirit::array_type &&
      type != json_spirit::null_type) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to make JSON-RPC request '%C': params must be an object or an "
                        "array, not %C.\n"),
               method, json_spirit::type_name(type)));
    return false;
  }
  JSON_RPC_Object* request = new JSON_RPC_Object;
  request->kind = JSON_RPC_Object::KIND_REQUEST;
  request->method = method;
  request->params = params;
  out.reset(request);
  return true;
}
