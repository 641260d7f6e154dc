#include "framework/jsonrpc/json_rpc_id_generator.h"

#include <atomic>

int64_t JSON_RPC_Id_Generator::gen(JSON_RPC_Object& request) {
  static std::atomic<int64_t> next{1};
  const int64_t id = next.fetch_add(1, std::memory_order_relaxed);
  request.id = id;
  return id;
}
