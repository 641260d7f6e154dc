// Any message the JSON-RPC reader accepts must write back as a message it reads again
// to the same thing; anything else must be refused without touching the object.
#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/json/reader.h"
#include "framework/jsonrpc/json_rpc_object.h"

namespace {

bool same(const JSON_RPC_Object& a, const JSON_RPC_Object& b) {
  return a.kind == b.kind && a.id == b.id && a.method == b.method && a.params == b.params &&
         a.result == b.result && a.error_code == b.error_code &&
         a.error_message == b.error_message && a.error_data == b.error_data;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  json_spirit::Value value;
  if (!json_spirit::read(reinterpret_cast<const char*>(data), size, value)) return 0;
  JSON_RPC_Object message;
  message.error_message = "sentinel";
  std::string why;
  if (!message.from_json(value, why)) {
    if (message.error_message != "sentinel" || why.empty()) __builtin_trap();
    return 0;
  }
  JSON_RPC_Object again;
  if (!again.from_json(message.to_json(), why) || !same(message, again)) __builtin_trap();
  return 0;
}
