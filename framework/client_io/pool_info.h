// What the backup server tells an agent about one storage pool, how it is asked, and
// how a pool's settings go into the options of a connection to it.
//
// The question is one GET on the backup server:
//   /d2/r/v2/pools/<pool name, percent-encoded>?device_uuid=<uuid>&is_restore=true|false
// (device_uuid only when there is one). The answer is a JSON object with a member per
// Pool_Info field under the field's name: "key" and "iv" as Base64 of the raw bytes,
// "cipher" by its name ("none", "aes-256-gcm"), "node_addrs" as {"<node number>":
// "<address>"}, "ext_attrs" and "default_s3" as objects of strings. "uuid", "name" and
// "url" are required; a missing optional member keeps its default. A 404, or any reply
// holding an "error" member, means the server does not know the pool.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "framework/base/api.h"
#include "framework/client_io/client_io_options.h"
#include "framework/json/value.h"

class HTTP_Response;
class JSON_RESTful_Client;

struct AGENTUTIL_API Pool_Info {
  std::string uuid;
  std::string name;
  std::string host_uuid;
  std::string url;  // what a connection opens: file:///dir, s3://host:port/bucket
  bool device_exists = false;
  bool multidevice = false;
  bool server_side_encryption = false;  // the pool seals data itself
  Encryption_Algorithm cipher = ENCR_NONE;
  std::string key;  // raw bytes (32 for AES-256); a secret
  std::string iv;   // raw bytes (12); a secret
  std::string preferred_source_address;
  std::string tenant_access_key;  // a secret
  std::map<std::string, std::string> ext_attrs;
  std::map<uint32_t, std::string> node_addrs;
  std::string dedup_backend_type;
  // S3 settings of the pool: "access_key", "secret_key" (secrets), "region", "ca_file".
  std::map<std::string, std::string> default_s3;
  bool s3_enabled = false;
};

// Reads the reply shape above. False with the reason in `error` (never a secret's
// text); `info` is then unspecified.
AGENTUTIL_API bool pool_info_from_json(const json_spirit::Value& reply, Pool_Info& info,
                                       std::string& error);
// The reply shape; secrets that are set as secure strings (masked in text for people).
AGENTUTIL_API json_spirit::Value pool_info_to_json(const Pool_Info& info);

// Asks the backup server through `client` for `pool`'s description.
//   device_uuid     the device the pool is asked for; null or "" for none
//   cancel          checked between attempts; when it becomes true the lookup stops
//   retry_seconds   how long transport failures and 5xx replies are retried (0: once)
//   max_attempts    a bound on attempts besides the time; -1: none
//   log_failure     false leaves the failure line to the caller (`error` has the text)
//   error           the reason of a failure, when wanted
//   response        the last reply's status and headers, when wanted
//   require_device  a pool that answers device_exists false is a failure too
// An unknown pool fails at once. On failure `info` is left as it was and, unless
// `log_failure` is false, one LM_ERROR line names the pool; it is the only line (failed
// attempts are not logged one by one). Several threads may ask through one client:
// its exchanges are serialised.
AGENTUTIL_API bool get_pool_info(JSON_RESTful_Client& client, const std::string& pool,
                                 const char* device_uuid, Pool_Info& info, bool is_restore,
                                 const std::atomic<bool>* cancel = nullptr, int retry_seconds = 0,
                                 int max_attempts = -1, bool log_failure = true,
                                 std::string* error = nullptr, HTTP_Response* response = nullptr,
                                 bool require_device = false);

// Applies `info` to a connection's options:
//   - a pool cipher replaces the options' cipher, key and IV (hex, as the options hold
//     them), unless the pool seals data itself: then the options' own sealing, if any,
//     stays (a description never turns the agent's encryption off);
//   - node addresses and the tenant access key replace the options' when the pool has
//     them; the preferred source address goes to extra_options
//     "preferred_source_address";
//   - with s3_enabled, default_s3's "access_key" and "secret_key" replace the options'
//     keys (they win over the tenant key) and any other member NAME becomes
//     extra_options "s3_NAME" (e.g. "s3_region").
// Everything else in `options` stays as it was.
AGENTUTIL_API void set_options_by_pool(Client_IO_Base::Options& options, const Pool_Info& info);
