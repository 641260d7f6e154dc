// Process-wide HTTP settings, set by the agent program at start-up (from its own
// configuration) and read by the framework whenever it opens a connection. The
// library itself reads no file or environment variable for them. Every getter and
// setter takes the object's lock, so any thread may read while the program re-aims;
// a connection already open keeps the settings it was made with.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "framework/base/api.h"
#include "framework/http/http_connection_settings.h"

struct AGENTUTIL_API HTTP_Server_Address {
  std::string host;
  unsigned short port = 0;
  bool ssl = false;
};

class AGENTUTIL_API HTTP_Options {
 public:
  // The backup server's REST and JSON-RPC port on this host, until told otherwise.
  static constexpr unsigned short DEFAULT_BACKUPD_PORT = 50305;

  static HTTP_Options* instance();

  // Where backupd's REST and JSON-RPC services are; 127.0.0.1:50305, plain HTTP,
  // by default.
  HTTP_Server_Address backupd() const;
  void backupd(const HTTP_Server_Address& address);

  // Time limits, certificate checks and the reply cap for the connections the
  // framework opens on its own (its address fields are not used).
  HTTP_Connection_Settings defaults() const;
  void defaults(const HTTP_Connection_Settings& settings);

  // The defaults aimed at `address`.
  HTTP_Connection_Settings settings_for(const HTTP_Server_Address& address) const;

  // Where this agent's own RPC listener accepts connections, so that data can be
  // reached through it. False (arguments untouched) until the agent program has set
  // an address with a host and a port.
  bool get_local_listen_address(std::string& host, uint16_t& port, bool& ssl) const;
  // An empty host or port 0 withdraws the address.
  void local_listen_address(const HTTP_Server_Address& address);

 private:
  mutable std::mutex mutex_;
  HTTP_Server_Address backupd_{"127.0.0.1", DEFAULT_BACKUPD_PORT, false};
  HTTP_Connection_Settings defaults_;
  HTTP_Server_Address local_listen_;
};

// Where backupd's WebSocket channel endpoint is, for agents that hold a channel open.
// Unset (empty host) until the agent program sets it.
class AGENTUTIL_API WebSocket_Options {
 public:
  static WebSocket_Options* instance();

  HTTP_Server_Address backupd() const;
  void backupd(const HTTP_Server_Address& address);

  // The parts of backupd(), for code that wants one of them.
  std::string host() const;
  uint16_t port() const;
  bool ssl() const;

 private:
  mutable std::mutex mutex_;
  HTTP_Server_Address backupd_;
};
