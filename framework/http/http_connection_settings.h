// Where a client or session sends its requests and how patient it is. Time-outs are
// whole seconds; zero or less means "no limit of this kind".
#pragma once

#include <cstdint>
#include <string>

#include "framework/base/api.h"

struct AGENTUTIL_API HTTP_Connection_Settings {
  static constexpr std::uint64_t DEFAULT_MAX_REPLY_BYTES = 64ull << 20;

  std::string host;
  unsigned short port = 80;
  bool ssl = false;
  // Reuse one connection for consecutive requests.
  bool keep_alive = true;
  // Check the server's certificate chain and name (HTTPS). Only a caller that knows
  // the server has no verifiable certificate turns this off.
  bool verify_peer = true;
  // CA bundle to verify against; "" uses the system's.
  std::string ca_file;
  // Until the TCP (and TLS) connection stands.
  int connect_timeout = 30;
  // The whole exchange, from connecting to the last byte of the reply.
  int transfer_timeout = 0;
  // Longest stretch during which not one byte moves.
  int idle_timeout = 120;
  // Replies with a larger body fail instead of filling memory.
  std::uint64_t max_reply_bytes = DEFAULT_MAX_REPLY_BYTES;
  // Tries to open the connection within one exchange when the server cannot be
  // reached. Safe for every method: nothing has been sent yet. At least 1.
  int connect_attempts = 1;

  // "http://host:port" or "https://host:port"; IPv6 addresses get brackets.
  std::string base_url() const;
  // True when the two talk to the same server in the same way, so a connection
  // kept alive for one is right for the other.
  bool same_endpoint(const HTTP_Connection_Settings& other) const;
  bool operator==(const HTTP_Connection_Settings& other) const;
  bool operator!=(const HTTP_Connection_Settings& other) const { return !(*this == other); }
};

// Flags with which agent code asks for a connection unlike the usual one.
enum HTTP_Connection_Flag : unsigned {
  // A new connection for every request.
  HTTP_NO_KEEP_ALIVE = 0x1,
  // Accept any server certificate (a test bed with self-signed certificates).
  HTTP_NO_VERIFY_PEER = 0x2,
};

// `settings` with the flags applied.
AGENTUTIL_API HTTP_Connection_Settings apply_connection_flags(HTTP_Connection_Settings settings,
                                                              unsigned flags);
