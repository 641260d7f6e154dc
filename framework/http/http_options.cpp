#include "framework/http/http_options.h"

HTTP_Options* HTTP_Options::instance() {
  static HTTP_Options options;
  return &options;
}

HTTP_Server_Address HTTP_Options::backupd() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return backupd_;
}

void HTTP_Options::backupd(const HTTP_Server_Address& address) {
  std::lock_guard<std::mutex> lock(mutex_);
  backupd_ = address;
}

HTTP_Connection_Settings HTTP_Options::defaults() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return defaults_;
}

void HTTP_Options::defaults(const HTTP_Connection_Settings& settings) {
  std::lock_guard<std::mutex> lock(mutex_);
  defaults_ = settings;
}

HTTP_Connection_Settings HTTP_Options::settings_for(const HTTP_Server_Address& address) const {
  HTTP_Connection_Settings s = defaults();
  s.host = address.host;
  s.port = address.port;
  s.ssl = address.ssl;
  return s;
}

WebSocket_Options* WebSocket_Options::instance() {
  static WebSocket_Options options;
  return &options;
}

HTTP_Server_Address WebSocket_Options::backupd() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return backupd_;
}

void WebSocket_Options::backupd(const HTTP_Server_Address& address) {
  std::lock_guard<std::mutex> lock(mutex_);
  backupd_ = address;
}
