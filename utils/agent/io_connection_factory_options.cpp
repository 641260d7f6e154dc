// IO_Connection_Factory::Options in and out of the agent's JSON parameters.
#include <ace/Log_Msg.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "framework/json/extract.h"
#include "framework/log/check.h"
#include "utils/agent/io_connection_factory.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;

uint16_t read_port(const Value& value, const std::string& key) {
  unsigned port = 0;
  json_spirit::extract_member(value, key, port);
  if (port > std::numeric_limits<uint16_t>::max())
    throw std::runtime_error("JSON member '" + key + "' holds a number out of range for a port");
  return static_cast<uint16_t>(port);
}

const Value& read_object(const Value& value, const std::string& key) {
  const Value& member = json_spirit::get_member(value, key);
  if (member.type() != json_spirit::obj_type)
    throw std::runtime_error("JSON member '" + key + "' holds " +
                             json_spirit::type_name(member.type()) + ", not an object");
  return member;
}

// The bounds' keys are optional: documents written before them keep loading.
void read_bounds(const Value& value, Pool_Bounds& bounds) {
  const json_spirit::Object& o = value.get_obj();
  if (o.count("require_tls")) json_spirit::extract_member(value, "require_tls", bounds.require_tls);
  if (!o.count("local_pool_roots")) return;
  const Value& roots = json_spirit::get_member(value, "local_pool_roots");
  if (roots.type() != json_spirit::array_type)
    throw std::runtime_error("JSON member 'local_pool_roots' is not an array");
  bounds.local_roots.clear();
  for (const Value& root : roots.get_array()) {
    if (root.type() != json_spirit::str_type || root.get_str().empty() || root.get_str()[0] != '/')
      throw std::runtime_error("JSON member 'local_pool_roots' holds something not an absolute path");
    bounds.local_roots.push_back(root.get_str());
  }
}

}  // namespace

bool IO_Connection_Factory::Options::load(const Value& value) {
  Value io_opts;
  try {
    json_spirit::extract_member(value, "is_restore", is_restore);
    json_spirit::extract_member(value, "device_uuid", device_uuid);
    json_spirit::extract_member(value, "backupd_ssl", ssl);
    port = read_port(value, "backupd_port");
    json_spirit::extract_member(value, "backupd_host", host);
    json_spirit::extract_member(value, "access_key", access_key);
    io_opts = read_object(value, "client_io_opts");
    int seconds = 0;
    json_spirit::extract_member(value, "retry_seconds", seconds);
    retry_seconds = seconds;
    read_bounds(value, bounds);
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to load IO connection params: %s\n"), e.what()));
    return false;
  }
  if (!client_io_opts.load(io_opts)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to load IO connection params: invalid I/O options.\n")));
    return false;
  }
  return true;
}

Value IO_Connection_Factory::Options::dump() const {
  // Worth a line: a document without a host cannot reach backupd once loaded elsewhere.
  (void)AU_IS_NULL_OR_EMPTY(host);
  return Object{{"backupd_ssl", ssl},
                {"backupd_port", port},
                {"backupd_host", host},
                {"access_key", Value::secure(access_key)},
                {"retry_seconds", retry_seconds},
                {"is_restore", is_restore},
                {"device_uuid", device_uuid},
                {"client_io_opts", client_io_opts.dump()},
                {"local_pool_roots", json_spirit::Array(bounds.local_roots.begin(), bounds.local_roots.end())},
                {"require_tls", bounds.require_tls}};
}
