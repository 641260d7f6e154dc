#include "sim/common/loopback_server.h"

#include <httplib.h>

#include <chrono>
#include <utility>

namespace au_sim {

namespace {

constexpr const char* LOOPBACK = "127.0.0.1";
constexpr const char* ANY_PATH = ".*";
// Idle keep-alive connections close after this many seconds.
constexpr time_t KEEP_ALIVE_SECONDS = 2;
constexpr int READY_WAIT_MS = 5000;

}  // namespace

Loopback_Server::Loopback_Server() : server_(new httplib::Server) { route_every_method(); }

Loopback_Server::Loopback_Server(const std::string& cert_file, const std::string& key_file)
    : server_(new httplib::SSLServer(cert_file.c_str(), key_file.c_str())) {
  route_every_method();
}

Loopback_Server::~Loopback_Server() { stop(); }

void Loopback_Server::route_every_method() {
  const auto route = [this](const httplib::Request& req, httplib::Response& res) {
    if (handler_) handler_(req, res);
    else res.status = 404;
  };
  server_->Get(ANY_PATH, route);
  server_->Post(ANY_PATH, route);
  server_->Put(ANY_PATH, route);
  server_->Delete(ANY_PATH, route);
  server_->Patch(ANY_PATH, route);
}

void Loopback_Server::set_handler(Handler handler) { handler_ = std::move(handler); }

void Loopback_Server::set_keep_alive_max_count(std::size_t count) { server_->set_keep_alive_max_count(count); }

void Loopback_Server::set_payload_max_length(std::size_t bytes) { server_->set_payload_max_length(bytes); }

bool Loopback_Server::start(unsigned short port) {
  if (thread_.joinable()) return true;
  if (!server_->is_valid()) return false;
  server_->set_keep_alive_timeout(KEEP_ALIVE_SECONDS);
  // httplib writes headers and body separately; with Nagle on, each reply on a kept-alive
  // connection waits out the client's delayed ACK (tens of milliseconds a request).
  server_->set_tcp_nodelay(true);
  int bound = 0;
  if (port == 0) {
    bound = server_->bind_to_any_port(LOOPBACK);
  } else if (server_->bind_to_port(LOOPBACK, port)) {
    bound = port;
  }
  if (bound <= 0) return false;
  port_ = static_cast<unsigned short>(bound);
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  for (int i = 0; i < READY_WAIT_MS && !server_->is_running(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return server_->is_running();
}

void Loopback_Server::stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  stop_cv_.notify_all();
  if (thread_.joinable()) {
    server_->stop();
    thread_.join();
  }
}

bool Loopback_Server::wait_for_stop(int milliseconds) {
  std::unique_lock<std::mutex> lock(mutex_);
  return stop_cv_.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return stopping_; });
}

bool Loopback_Server::stopping() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return stopping_;
}

}  // namespace au_sim
