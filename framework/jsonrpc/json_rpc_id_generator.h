// Ids for outgoing JSON-RPC requests: integers, unique within the process, so a
// reply can be matched with the request it answers. Safe from any thread (one atomic
// counter).
#pragma once

#include <cstdint>

#include "framework/jsonrpc/json_rpc_object.h"

class JSON_RPC_Id_Generator {
 public:
  // Stamps `request` with the next id and returns it.
  static int64_t gen(JSON_RPC_Object& request);
};
