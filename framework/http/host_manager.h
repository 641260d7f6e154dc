// This host's identity towards the backup server: its uuid and the access key it
// presents on every request. Set by the agent program; read by the framework.
// One per process; any thread may set or read (a mutex guards both), and readers get
// copies.
#pragma once

#include <mutex>
#include <string>

#include "framework/base/api.h"

class AGENTUTIL_API Host_Manager {
 public:
  static Host_Manager* instance();

  std::string uuid() const;
  void uuid(const std::string& uuid);

  // A secret: never logged. Empty when the host has none (no header is sent then).
  std::string access_key() const;
  void access_key(const std::string& key);

  ~Host_Manager();

 private:
  mutable std::mutex mutex_;
  std::string uuid_;
  std::string access_key_;
};
