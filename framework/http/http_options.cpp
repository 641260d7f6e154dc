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

bool HTTP_Options::get_local_listen_address(std::string& host, uint16_t& port, bool& ssl) const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (local_listen_.host.empty() || local_listen_.port == 0) return false;
  host = local_listen_.host;
  port = local_listen_.port;
  ssl = local_listen_.ssl;
  return true;
}

void HTTP_Options::local_listen_address(const HTTP_Server_Address& address) {
  std::lock_guard<std::mutex> lock(mutex_);
  local_listen_ = address;
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

std::string WebSocket_Options::host() const { return backupd().host; }

uint16_t WebSocket_Options::port() const { return backupd().port; }

bool WebSocket_Options::ssl() const { return backupd().ssl; }
