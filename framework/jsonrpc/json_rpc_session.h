// A way of sending JSON-RPC requests and getting their replies. The transport is the
// subclass's (JSON_RPC_HTTP_Session: HTTP POST).
// Whether calls may come from several threads is the subclass's to say.
#pragma once

#include "framework/json/value.h"
#include "framework/jsonrpc/json_rpc_object.h"

class JSON_RPC_Session {
 public:
  virtual ~JSON_RPC_Session() = default;

  // A new request object (kind KIND_REQUEST, no id yet) for `method` with `params`,
  // which must be an object, an array or null (no params). False, with one log
  // line, for a null or empty method or scalar params; `out` is then untouched.
  static bool make_rpc_request(const char* method, const json_spirit::Value& params,
                               JSON_RPC_Object_Ptr& out);

  // Sends `request` and returns the reply that answers it (kind KIND_RESULT or
  // KIND_ERROR), or a null pointer, with one log line, when none could be had.
  virtual JSON_RPC_Object_Ptr request(JSON_RPC_Object_Ptr request) = 0;
};
