#include "framework/http/host_manager.h"

#include <string.h>

namespace {

// The old key's bytes do not linger in freed memory.
void wipe(std::string& secret) {
  if (!secret.empty()) ::explicit_bzero(&secret[0], secret.size());
  secret.clear();
}

}  // namespace

Host_Manager* Host_Manager::instance() {
  static Host_Manager manager;
  return &manager;
}

Host_Manager::~Host_Manager() { wipe(access_key_); }

std::string Host_Manager::uuid() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return uuid_;
}

void Host_Manager::uuid(const std::string& uuid) {
  std::lock_guard<std::mutex> lock(mutex_);
  uuid_ = uuid;
}

std::string Host_Manager::access_key() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return access_key_;
}

void Host_Manager::access_key(const std::string& key) {
  std::lock_guard<std::mutex> lock(mutex_);
  wipe(access_key_);
  access_key_ = key;
}
