#include "utils/agent/tencent/tencent_utils.h"

#include <ace/Log_Msg.h>

#include <cstdint>
#include <exception>
#include <string>

#include "framework/base/base64.h"
#include "framework/json/extract.h"
#include "framework/json/insert.h"
#include "framework/log/check.h"
#include "utils/agent/json_rpc_channel_forward.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;

bool given(const char* s) { return s != nullptr && *s != '\0'; }

// A boolean member of the agent's answer; false when it is missing. A member of
// another type is refused with one log line.
bool read_flag(const Value& answer, const char* key, const char* host, const char* method) {
  const Object& o = answer.get_obj();
  const auto it = o.find(key);
  if (it == o.end()) return false;
  if (it->second.type() != json_spirit::bool_type) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Agent '%C' answered '%C' with '%C' of %C, not a boolean.\n"),
               host, method, key, json_spirit::type_name(it->second.type())));
    return false;
  }
  return it->second.get_bool();
}

bool add_encryption(Object& params, const char* method, const char* key, const char* iv) {
  if (!given(method)) return true;
  if (!given(key) || !given(iv)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Invalid encryption param, need 'encryption_key' and "
                                  "'encryption_iv'.\n")));
    return false;
  }
  params["encryption_method"] = method;
  params["encryption_key"] = Value::secure(base64_encode(key));
  params["encryption_iv"] = Value::secure(base64_encode(iv));
  return true;
}

}  // namespace

bool request_agent_to_mount(const char* method, const char* host, const char* remote_url,
                            const char* mnt, const char* user, unsigned long retry_timeout,
                            unsigned long limit_rate, const char* compress_method,
                            unsigned long compress_level, const char* encryption_method,
                            const char* encryption_key, const char* encryption_iv,
                            const char* origin_url, bool* has_mounted) {
  if (AU_IS_NULL_OR_EMPTY(method) || AU_IS_NULL_OR_EMPTY(host) ||
      AU_IS_NULL_OR_EMPTY(remote_url) || AU_IS_NULL_OR_EMPTY(mnt) || AU_IS_NULL_OR_EMPTY(user))
    return false;
  Object params{{"action", "mount"},         {"remote_url", remote_url},
                {"mnt", mnt},                {"user", user},
                {"retry_timeout", retry_timeout}, {"limit_rate", limit_rate}};
  json_spirit::insert_if_not_empty(params, "origin_url", origin_url);
  if (json_spirit::insert_if_not_empty(params, "compress_method", compress_method))
    params["compress_level"] = compress_level;
  if (!add_encryption(params, encryption_method, encryption_key, encryption_iv)) return false;

  Value answer;
  if (!json_rpc_forward(method, params, host, &answer, json_spirit::obj_type)) return false;
  // Stored whatever the result: a refused mount may still say the directory was mounted.
  if (has_mounted != nullptr) *has_mounted = read_flag(answer, "has_mounted", host, method);
  return read_flag(answer, "result", host, method);
}

bool request_agent_to_umount(const char* method, const char* host, const char* mnt) {
  if (AU_IS_NULL_OR_EMPTY(method) || AU_IS_NULL_OR_EMPTY(host) || AU_IS_NULL_OR_EMPTY(mnt))
    return false;
  const Value params = Object{{"action", "umount"}, {"mnt", mnt}};
  Value answer;
  if (!json_rpc_forward(method, params, host, &answer, json_spirit::obj_type)) return false;
  return read_flag(answer, "result", host, method);
}

int64_t request_agent_to_get_storage_file_size(const char* method, const char* host,
                                               const std::vector<Value>& files) {
  if (AU_IS_NULL_OR_EMPTY(method) || AU_IS_NULL_OR_EMPTY(host)) return -1;
  const Value params = Object{{"action", "check_storage_size"}, {"files", files}};
  Value answer;
  if (!json_rpc_forward(method, params, host, &answer, json_spirit::obj_type)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get storage size on agent '%C', JSON-RPC error.\n"),
               host));
    return -1;
  }
  try {
    bool result = false;
    const auto it = answer.get_obj().find("result");
    if (it != answer.get_obj().end()) result = it->second.get_bool();
    if (!result) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to check storage size on agent '%C', 'result' is "
                                    "false.\n"),
                 host));
      return -1;
    }
    uint64_t total = 0;
    json_spirit::extract_member(answer, "total_size", total);
    if (total > static_cast<uint64_t>(INT64_MAX))
      throw std::runtime_error("total_size " + std::to_string(total) + " is out of range");
    return static_cast<int64_t>(total);
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to extract info from JSON-RPC response when getting "
                                  "storage size on agent '%C', error: %C\n"),
               host, e.what()));
    return -1;
  }
}
