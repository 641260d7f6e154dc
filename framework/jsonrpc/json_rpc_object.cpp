#include "framework/jsonrpc/json_rpc_object.h"

#include <climits>

namespace {

using json_spirit::Object;
using json_spirit::Value;

const char* const VERSION = "2.0";

bool valid_id(const Value& id) {
  return id.type() == json_spirit::str_type || id.type() == json_spirit::int_type ||
         id.is_null();
}

bool structured_or_null(const Value& v) {
  return v.is_null() || v.type() == json_spirit::obj_type || v.type() == json_spirit::array_type;
}

const Value* member(const Object& o, const char* key) {
  const auto it = o.find(key);
  return it == o.end() ? nullptr : &it->second;
}

bool fits_int(const Value& v) {
  if (v.type() != json_spirit::int_type || v.is_uint64()) return false;
  const int64_t n = v.get_int64();
  return n >= INT_MIN && n <= INT_MAX;
}

// A request or a notification: "method" and maybe "params" and "id".
bool read_call(const Object& o, JSON_RPC_Object& out, std::string& why) {
  const Value& method = o.at("method");
  if (method.type() != json_spirit::str_type || method.get_str().empty()) {
    why = "\"method\" is not a non-empty string";
    return false;
  }
  const Value* params = member(o, "params");
  if (params != nullptr && !structured_or_null(*params)) {
    why = "\"params\" is neither an object nor an array";
    return false;
  }
  const Value* id = member(o, "id");
  out.kind = id == nullptr ? JSON_RPC_Object::KIND_NOTIFICATION : JSON_RPC_Object::KIND_REQUEST;
  if (id != nullptr) out.id = *id;
  out.method = method.get_str();
  if (params != nullptr) out.params = *params;
  return true;
}

bool read_error(const Value& error, JSON_RPC_Object& out, std::string& why) {
  if (error.type() != json_spirit::obj_type) {
    why = "\"error\" is not an object";
    return false;
  }
  const Object& e = error.get_obj();
  const Value* code = member(e, "code");
  const Value* message = member(e, "message");
  if (code == nullptr || !fits_int(*code)) {
    why = "\"error.code\" is not an integer";
    return false;
  }
  if (message == nullptr || message->type() != json_spirit::str_type) {
    why = "\"error.message\" is not a string";
    return false;
  }
  out.kind = JSON_RPC_Object::KIND_ERROR;
  out.error_code = static_cast<int>(code->get_int64());
  out.error_message = message->get_str();
  if (const Value* data = member(e, "data")) out.error_data = *data;
  return true;
}

// A reply: exactly one of "result" and "error", and an id.
bool read_reply(const Object& o, JSON_RPC_Object& out, std::string& why) {
  const Value* result = member(o, "result");
  const Value* error = member(o, "error");
  if ((result == nullptr) == (error == nullptr)) {
    why = "a reply needs exactly one of \"result\" and \"error\"";
    return false;
  }
  const Value* id = member(o, "id");
  if (id == nullptr) {
    why = "\"id\" is missing";
    return false;
  }
  out.id = *id;
  if (error != nullptr) return read_error(*error, out, why);
  out.kind = JSON_RPC_Object::KIND_RESULT;
  out.result = *result;
  return true;
}

}  // namespace

Value JSON_RPC_Object::to_json() const {
  Object o{{"jsonrpc", VERSION}};
  switch (kind) {
    case KIND_REQUEST:
      o["id"] = id;
      // fall through
    case KIND_NOTIFICATION:
      o["method"] = method;
      if (!params.is_null()) o["params"] = params;
      return o;
    case KIND_RESULT:
      o["id"] = id;
      o["result"] = result;
      return o;
    case KIND_ERROR: {
      Object e{{"code", error_code}, {"message", error_message}};
      if (!error_data.is_null()) e["data"] = error_data;
      o["id"] = id;
      o["error"] = std::move(e);
      return o;
    }
    default:
      return Value();
  }
}

bool JSON_RPC_Object::from_json(const Value& v, std::string& why) {
  if (v.type() != json_spirit::obj_type) {
    why = "the message is not a JSON object";
    return false;
  }
  const Object& o = v.get_obj();
  const Value* version = member(o, "jsonrpc");
  if (version == nullptr || version->type() != json_spirit::str_type ||
      version->get_str() != VERSION) {
    why = "\"jsonrpc\" is not \"2.0\"";
    return false;
  }
  const Value* id = member(o, "id");
  if (id != nullptr && !valid_id(*id)) {
    why = "\"id\" is neither a string, an integer nor null";
    return false;
  }
  JSON_RPC_Object parsed;
  const bool ok = member(o, "method") != nullptr ? read_call(o, parsed, why)
                                                 : read_reply(o, parsed, why);
  if (ok) *this = std::move(parsed);
  return ok;
}
