// What a client-I/O connection needs to reach a pool: loaded from and dumped to the
// JSON object that agents pass around ("client_io_opts").
//
// The document is an object whose members are the fields below under the same names;
// every member is optional (a missing one keeps its default), and load() refuses unknown
// members, wrong types, out-of-range numbers and unknown enumeration names with one log
// line, leaving the options exactly as they were. dump() writes every member, so that
// load(dump()) gives back equal options. Secrets (access and secret keys, encryption key
// and IV) are dumped as secure strings: masked in any text meant for a log line.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "framework/base/api.h"
#include "framework/client_io/client_io_base.h"
#include "framework/client_io/client_io_enums.h"
#include "framework/client_io/rate_limits.h"
#include "framework/json/value.h"

struct AGENTUTIL_API Client_IO_Base::Options {
  Compression_Method compression_method = COMPR_AUTO;
  Rate_Limits rate_limits;
  D2T_Access_Mode d2t_access_mode = D2T_Access_Auto;
  std::string d2t_rpc_host;
  uint16_t d2t_rpc_port = 0;

  uint32_t connect_timeout_ms = 10000;
  uint32_t io_timeout_ms = 60000;   // a transfer making no progress this long fails
  uint32_t retry_count = 3;         // further attempts after a retryable failure
  uint32_t retry_backoff_ms = 200;  // first delay; doubles per attempt
  // Bytes a writer keeps to resend after a broken transfer; an S3 pool's part size.
  // 32 MiB: each part costs the Ceph gateway about 7 ms of CPU beyond its bytes, so a
  // 400 MiB upload in 16 MiB parts cost it 7-10% more than one PUT; in 32 MiB parts,
  // about as much as one PUT.
  uint64_t resume_buffer_size = 32u << 20;

  Encryption_Algorithm cipher = ENCR_NONE;
  std::string key;  // 64 hex digits (AES-256)
  std::string iv;   // 24 hex digits
  bool dedup = false;
  std::string access_key;
  std::string secret_key;
  std::map<uint32_t, std::string> node_addrs;
  std::map<std::string, std::string> extra_options;  // e.g. "s3_region"

  void set_d2t_rpc_host(const std::string& host) { d2t_rpc_host = host; }
  void set_d2t_rpc_port(uint16_t port) { d2t_rpc_port = port; }

  bool load(const json_spirit::Value& value);
  json_spirit::Value dump() const;

  bool operator==(const Options& o) const;
  bool operator!=(const Options& o) const { return !(*this == o); }
};

// The smallest part an S3 pool accepts (its multipart minimum).
constexpr uint64_t MIN_RESUME_BUFFER_SIZE = 5u << 20;
constexpr uint64_t MAX_RESUME_BUFFER_SIZE = 1u << 30;
