// Process-wide HTTP settings, set by the agent program at start-up (from its own
// configuration) and read by the framework whenever it opens a connection. The
// library itself reads no file or environment variable for them.
#pragma once

#include <mutex>
#include <string>

#include "framework/http/http_connection_settings.h"

struct HTTP_Server_Address {
  std::string host;
  unsigned short port = 0;
  bool ssl = false;
};

class HTTP_Options {
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

 private:
  mutable std::mutex mutex_;
  HTTP_Server_Address backupd_{"127.0.0.1", DEFAULT_BACKUPD_PORT, false};
  HTTP_Connection_Settings defaults_;
};

// Where backupd's WebSocket channel endpoint is, for agents that hold a channel open.
// Unset (empty host) until the agent program sets it.
class WebSocket_Options {
 public:
  static WebSocket_Options* instance();

  HTTP_Server_Address backupd() const;
  void backupd(const HTTP_Server_Address& address);

 private:
  mutable std::mutex mutex_;
  HTTP_Server_Address backupd_;
};
