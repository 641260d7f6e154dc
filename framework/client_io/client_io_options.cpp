#include "framework/client_io/client_io_options.h"

#include <ace/Log_Msg.h>

#include <limits>
#include <stdexcept>

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

[[noreturn]] void refuse(const std::string& key, const std::string& why) {
  throw std::runtime_error("\"" + key + "\" " + why);
}

const Value& expect(const Value& v, const std::string& key, json_spirit::Value_type t) {
  const bool ok = v.type() == t || (t == json_spirit::str_type && v.type() == json_spirit::secure_str_type);
  if (!ok) refuse(key, std::string("must be ") + json_spirit::type_name(t));
  return v;
}

uint64_t read_uint(const Value& v, const std::string& key, uint64_t max) {
  expect(v, key, json_spirit::int_type);
  if (!v.is_uint64() && v.get_int64() < 0) refuse(key, "must not be negative");
  const uint64_t n = v.get_uint64();
  if (n > max) refuse(key, "must be at most " + std::to_string(max));
  return n;
}

std::string read_str(const Value& v, const std::string& key) {
  return expect(v, key, json_spirit::str_type).get_str();
}

bool is_hex(const std::string& s) {
  return s.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

// Secrets are checked by shape only: their text never goes into a message.
std::string read_hex_secret(const Value& v, const std::string& key, size_t digits) {
  std::string s = read_str(v, key);
  if (!s.empty() && (s.size() != digits || !is_hex(s))) {
    refuse(key, "must be " + std::to_string(digits) + " hex digits");
  }
  return s;
}

template <class E>
E read_enum(const Value& v, const std::string& key, bool (*from_name)(const std::string&, E&)) {
  const std::string& name = read_str(v, key);
  E e;
  if (!from_name(name, e)) refuse(key, "has unknown value '" + name + "'");
  return e;
}

std::vector<Rate_Control_Entry> read_windows(const Value& v, const std::string& key) {
  std::vector<Rate_Control_Entry> out;
  for (const Value& item : expect(v, key, json_spirit::array_type).get_array()) {
    Rate_Control_Entry e;
    for (const auto& [name, field] : expect(item, key, json_spirit::obj_type).get_obj()) {
      const std::string path = key + "." + name;
      if (name == "start_time") e.start_time = read_uint(field, path, 86399);
      else if (name == "end_time") e.end_time = read_uint(field, path, 86399);
      else if (name == "max_bytes_per_second") e.max_bytes_per_second = read_uint(field, path, std::numeric_limits<size_t>::max());
      else refuse(path, "is not a rate window field");
    }
    out.push_back(e);
  }
  return out;
}

Rate_Limits read_rate_limits(const Value& v) {
  Rate_Limits r;
  for (const auto& [name, field] : expect(v, "rate_limits", json_spirit::obj_type).get_obj()) {
    if (name == "dest") r.dest_rate_limits = read_windows(field, "rate_limits.dest");
    else if (name == "src") r.src_rate_limits = read_windows(field, "rate_limits.src");
    else refuse("rate_limits." + name, "is not a rate limit direction");
  }
  return r;
}

std::map<uint32_t, std::string> read_node_addrs(const Value& v) {
  std::map<uint32_t, std::string> out;
  for (const auto& [name, addr] : expect(v, "node_addrs", json_spirit::obj_type).get_obj()) {
    const std::string path = "node_addrs." + name;
    if (name.empty() || name.size() > 10 || name.find_first_not_of("0123456789") != std::string::npos ||
        std::stoull(name) > std::numeric_limits<uint32_t>::max()) {
      refuse(path, "is not a node number");
    }
    out[static_cast<uint32_t>(std::stoull(name))] = read_str(addr, path);
  }
  return out;
}

std::map<std::string, std::string> read_string_map(const Value& v, const std::string& key) {
  std::map<std::string, std::string> out;
  for (const auto& [name, text] : expect(v, key, json_spirit::obj_type).get_obj()) {
    out[name] = read_str(text, key + "." + name);
  }
  return out;
}

void read_member(Client_IO_Base::Options& o, const std::string& k, const Value& v) {
  if (k == "compression_method") {
    o.compression_method = read_enum(v, k, compression_method_from_name);
  } else if (k == "rate_limits") o.rate_limits = read_rate_limits(v);
  else if (k == "d2t_access_mode") o.d2t_access_mode = read_enum(v, k, d2t_access_mode_from_name);
  else if (k == "d2t_rpc_host") o.d2t_rpc_host = read_str(v, k);
  else if (k == "d2t_rpc_port") o.d2t_rpc_port = read_uint(v, k, 65535);
  else if (k == "connect_timeout_ms") o.connect_timeout_ms = read_uint(v, k, UINT32_MAX);
  else if (k == "io_timeout_ms") o.io_timeout_ms = read_uint(v, k, UINT32_MAX);
  else if (k == "retry_count") o.retry_count = read_uint(v, k, 100);
  else if (k == "retry_backoff_ms") o.retry_backoff_ms = read_uint(v, k, 3600000);
  else if (k == "resume_buffer_size") {
    o.resume_buffer_size = read_uint(v, k, MAX_RESUME_BUFFER_SIZE);
    if (o.resume_buffer_size < MIN_RESUME_BUFFER_SIZE) refuse(k, "must be at least 5 MiB");
  } else if (k == "cipher") o.cipher = read_enum(v, k, encryption_algorithm_from_name);
  else if (k == "key") o.key = read_hex_secret(v, k, 64);
  else if (k == "iv") o.iv = read_hex_secret(v, k, 24);
  else if (k == "dedup") o.dedup = expect(v, k, json_spirit::bool_type).get_bool();
  else if (k == "access_key") o.access_key = read_str(v, k);
  else if (k == "secret_key") o.secret_key = read_str(v, k);
  else if (k == "node_addrs") o.node_addrs = read_node_addrs(v);
  else if (k == "extra_options") o.extra_options = read_string_map(v, k);
  else refuse(k, "is not a client I/O option");
}

Value dump_windows(const std::vector<Rate_Control_Entry>& windows) {
  Array a;
  for (const Rate_Control_Entry& e : windows) {
    a.push_back(Object{{"start_time", e.start_time},
                       {"end_time", e.end_time},
                       {"max_bytes_per_second", static_cast<uint64_t>(e.max_bytes_per_second)}});
  }
  return a;
}

}  // namespace

bool Client_IO_Base::Options::load(const Value& value) {
  Options next;  // defaults for what the document leaves out; *this changes only on success
  try {
    for (const auto& [key, member] : expect(value, "client_io_opts", json_spirit::obj_type).get_obj()) {
      read_member(next, key, member);
    }
    if (next.cipher != ENCR_NONE && (next.key.empty() || next.iv.empty())) {
      refuse("cipher", "needs both \"key\" and \"iv\"");
    }
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, "Failed to load client I/O options: %s\n", e.what()));
    return false;
  }
  *this = std::move(next);
  return true;
}

Value Client_IO_Base::Options::dump() const {
  Object nodes;
  for (const auto& [n, addr] : node_addrs) nodes[std::to_string(n)] = addr;
  Object extra;
  for (const auto& [k, v] : extra_options) extra[k] = v;
  const char* compression = compression_method_name(compression_method);
  const char* mode = d2t_access_mode_name(d2t_access_mode);
  const char* algorithm = encryption_algorithm_name(cipher);
  return Object{
      {"compression_method", compression ? compression : ""},
      {"rate_limits", Object{{"dest", dump_windows(rate_limits.dest_rate_limits)},
                             {"src", dump_windows(rate_limits.src_rate_limits)}}},
      {"d2t_access_mode", mode ? mode : ""},
      {"d2t_rpc_host", d2t_rpc_host},
      {"d2t_rpc_port", d2t_rpc_port},
      {"connect_timeout_ms", connect_timeout_ms},
      {"io_timeout_ms", io_timeout_ms},
      {"retry_count", retry_count},
      {"retry_backoff_ms", retry_backoff_ms},
      {"resume_buffer_size", resume_buffer_size},
      {"cipher", algorithm ? algorithm : ""},
      {"key", Value::secure(key)},
      {"iv", Value::secure(iv)},
      {"dedup", dedup},
      {"access_key", Value::secure(access_key)},
      {"secret_key", Value::secure(secret_key)},
      {"node_addrs", nodes},
      {"extra_options", extra}};
}

bool Client_IO_Base::Options::operator==(const Options& o) const {
  return compression_method == o.compression_method && rate_limits == o.rate_limits &&
         d2t_access_mode == o.d2t_access_mode && d2t_rpc_host == o.d2t_rpc_host &&
         d2t_rpc_port == o.d2t_rpc_port && connect_timeout_ms == o.connect_timeout_ms &&
         io_timeout_ms == o.io_timeout_ms && retry_count == o.retry_count &&
         retry_backoff_ms == o.retry_backoff_ms && resume_buffer_size == o.resume_buffer_size &&
         cipher == o.cipher && key == o.key && iv == o.iv && dedup == o.dedup &&
         access_key == o.access_key && secret_key == o.secret_key &&
         node_addrs == o.node_addrs && extra_options == o.extra_options;
}
