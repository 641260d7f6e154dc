// One JSON-RPC 2.0 message: a request, a result or an error, with its id. Messages
// that arrive from outside are read by from_json(), which takes nothing on trust.
#pragma once

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Refcounted_Auto_Ptr.h>

#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

class AGENTUTIL_API JSON_RPC_Object {
 public:
  // The numbers are part of the interface: callers compare `kind` with them.
  enum Kind { KIND_INVALID = 0, KIND_NOTIFICATION = 1, KIND_REQUEST = 2, KIND_RESULT = 3,
              KIND_ERROR = 4 };

  // Error codes the protocol reserves.
  enum Error_Code {
    PARSE_ERROR = -32700,
    INVALID_REQUEST = -32600,
    METHOD_NOT_FOUND = -32601,
    INVALID_PARAMS = -32602,
    INTERNAL_ERROR = -32603,
  };

  int kind = KIND_INVALID;
  // A string, an integer or null.
  json_spirit::Value id;
  // Requests and notifications.
  std::string method;
  json_spirit::Value params;  // an object, an array, or null for none
  // Results.
  json_spirit::Value result;
  // Errors.
  int error_code = 0;
  std::string error_message;
  json_spirit::Value error_data;  // null when there is none

  // The message as sent on the wire ({"jsonrpc": "2.0", ...}); an invalid kind gives
  // null.
  json_spirit::Value to_json() const;

  // Replaces this object with the message `v`. False, with `why` saying what is
  // wrong and the object left as it was, for anything that is not one well-formed
  // JSON-RPC 2.0 message.
  bool from_json(const json_spirit::Value& v, std::string& why);
};

using JSON_RPC_Object_Ptr = ACE_Refcounted_Auto_Ptr<JSON_RPC_Object, ACE_Recursive_Thread_Mutex>;
