#include "framework/client_io/pool_info.h"

#include <charconv>
#include <stdexcept>

#include "framework/base/base64.h"
#include "framework/json/extract.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;

constexpr size_t AES_256_KEY_BYTES = 32;
constexpr size_t GCM_IV_BYTES = 12;

[[noreturn]] void refuse(const std::string& key, const std::string& why) {
  throw std::runtime_error("JSON member '" + key + "' " + why);
}

bool has_member(const Value& reply, const std::string& key) {
  return reply.get_obj().count(key) != 0;
}

template <class T>
void read_optional(const Value& reply, const std::string& key, T& out) {
  if (has_member(reply, key)) json_spirit::extract_member(reply, key, out);
}

const Value* optional_object(const Value& reply, const std::string& key) {
  if (!has_member(reply, key)) return nullptr;
  const Value& v = json_spirit::get_member(reply, key);
  if (v.type() != json_spirit::obj_type) refuse(key, "is not an object");
  return &v;
}

std::map<std::string, std::string> read_string_map(const Value& reply, const std::string& key) {
  std::map<std::string, std::string> out;
  const Value* obj = optional_object(reply, key);
  if (obj == nullptr) return out;
  for (const auto& member : obj->get_obj())
    json_spirit::extract_member(*obj, member.first, out[member.first]);
  return out;
}

std::map<uint32_t, std::string> read_node_addrs(const Value& reply) {
  std::map<uint32_t, std::string> out;
  for (const auto& [name, addr] : read_string_map(reply, "node_addrs")) {
    uint32_t node = 0;
    const auto r = std::from_chars(name.data(), name.data() + name.size(), node);
    if (name.empty() || r.ec != std::errc() || r.ptr != name.data() + name.size())
      refuse("node_addrs", "has a key that is not a node number: '" + name + "'");
    out[node] = addr;
  }
  return out;
}

Encryption_Algorithm read_cipher(const Value& reply) {
  std::string name = "none";
  read_optional(reply, "cipher", name);
  Encryption_Algorithm a = ENCR_NONE;
  if (!encryption_algorithm_from_name(name, a)) refuse("cipher", "names no cipher: '" + name + "'");
  return a;
}

// Raw bytes of a Base64 secret; its text never goes into an error.
std::string read_secret_bytes(const Value& reply, const std::string& key) {
  std::string text, bytes;
  read_optional(reply, key, text);
  if (!text.empty() && !base64_decode(text, bytes)) refuse(key, "is not Base64");
  return bytes;
}

void check_client_cipher(const Pool_Info& info) {
  if (info.cipher == ENCR_NONE || info.server_side_encryption) return;
  if (info.key.size() != AES_256_KEY_BYTES)
    refuse("key", "must hold " + std::to_string(AES_256_KEY_BYTES) + " bytes");
  if (info.iv.size() != GCM_IV_BYTES)
    refuse("iv", "must hold " + std::to_string(GCM_IV_BYTES) + " bytes");
}

void read_fields(const Value& reply, Pool_Info& info) {
  json_spirit::extract_member(reply, "uuid", info.uuid);
  json_spirit::extract_member(reply, "name", info.name);
  read_optional(reply, "host_uuid", info.host_uuid);
  json_spirit::extract_member(reply, "url", info.url);
  if (info.url.empty()) refuse("url", "is empty");
  read_optional(reply, "device_exists", info.device_exists);
  read_optional(reply, "multidevice", info.multidevice);
  read_optional(reply, "server_side_encryption", info.server_side_encryption);
  info.cipher = read_cipher(reply);
  info.key = read_secret_bytes(reply, "key");
  info.iv = read_secret_bytes(reply, "iv");
  read_optional(reply, "preferred_source_address", info.preferred_source_address);
  read_optional(reply, "tenant_access_key", info.tenant_access_key);
  info.ext_attrs = read_string_map(reply, "ext_attrs");
  info.node_addrs = read_node_addrs(reply);
  read_optional(reply, "dedup_backend_type", info.dedup_backend_type);
  info.default_s3 = read_string_map(reply, "default_s3");
  read_optional(reply, "s3_enabled", info.s3_enabled);
  check_client_cipher(info);
}

bool is_s3_secret(const std::string& name) { return name == "access_key" || name == "secret_key"; }

// An absent secret has nothing to hide, and a masked "" would read as one that is set.
Value secret(const std::string& text) { return text.empty() ? Value(text) : Value::secure(text); }

Object string_map(const std::map<std::string, std::string>& m) {
  Object o;
  for (const auto& [k, v] : m) o[k] = v;
  return o;
}

}  // namespace

bool pool_info_from_json(const Value& reply, Pool_Info& info, std::string& error) {
  if (reply.type() != json_spirit::obj_type) {
    error = std::string("the reply is ") + json_spirit::type_name(reply.type()) + ", not an object";
    return false;
  }
  try {
    read_fields(reply, info);
  } catch (const std::exception& e) {
    error = e.what();
    return false;
  }
  return true;
}

Value pool_info_to_json(const Pool_Info& info) {
  Object nodes;
  for (const auto& [n, addr] : info.node_addrs) nodes[std::to_string(n)] = addr;
  Object s3;
  for (const auto& [k, v] : info.default_s3) s3[k] = is_s3_secret(k) ? secret(v) : Value(v);
  const char* cipher = encryption_algorithm_name(info.cipher);
  return Object{{"uuid", info.uuid},
                {"name", info.name},
                {"host_uuid", info.host_uuid},
                {"url", info.url},
                {"device_exists", info.device_exists},
                {"multidevice", info.multidevice},
                {"server_side_encryption", info.server_side_encryption},
                {"cipher", cipher ? cipher : ""},
                {"key", secret(base64_encode(info.key))},
                {"iv", secret(base64_encode(info.iv))},
                {"preferred_source_address", info.preferred_source_address},
                {"tenant_access_key", secret(info.tenant_access_key)},
                {"ext_attrs", string_map(info.ext_attrs)},
                {"node_addrs", nodes},
                {"dedup_backend_type", info.dedup_backend_type},
                {"default_s3", s3},
                {"s3_enabled", info.s3_enabled}};
}
