#include "tests/support/http_test_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

namespace au_test {

namespace {

// A socket bound to 127.0.0.1 on a port the kernel picks; -1 on failure.
int bind_loopback(unsigned short& port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(addr);
  if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
    ::close(fd);
    return -1;
  }
  port = ntohs(addr.sin_port);
  return fd;
}

}  // namespace

std::string Recorded_Request::query() const {
  const auto mark = target.find('?');
  return mark == std::string::npos ? std::string() : target.substr(mark + 1);
}

std::string Recorded_Request::header(const std::string& name) const {
  for (const auto& h : headers)
    if (::strcasecmp(h.first.c_str(), name.c_str()) == 0) return h.second;
  return std::string();
}

bool Recorded_Request::has_header(const std::string& name) const { return header_count(name) > 0; }

std::size_t Recorded_Request::header_count(const std::string& name) const {
  std::size_t n = 0;
  for (const auto& h : headers)
    if (::strcasecmp(h.first.c_str(), name.c_str()) == 0) ++n;
  return n;
}

HTTP_Test_Server::HTTP_Test_Server() : server_(new httplib::Server) {}

HTTP_Test_Server::HTTP_Test_Server(const Self_Signed_Certificate& cert)
    : server_(new httplib::SSLServer(cert.cert_file().c_str(), cert.key_file().c_str())) {}

HTTP_Test_Server::~HTTP_Test_Server() { stop(); }

void HTTP_Test_Server::on(const std::string& method, const std::string& pattern, Handler handler) {
  if (method == "GET") server_->Get(pattern, std::move(handler));
  else if (method == "POST") server_->Post(pattern, std::move(handler));
  else if (method == "PUT") server_->Put(pattern, std::move(handler));
  else if (method == "DELETE") server_->Delete(pattern, std::move(handler));
  else if (method == "PATCH") server_->Patch(pattern, std::move(handler));
  else if (method == "OPTIONS") server_->Options(pattern, std::move(handler));
}

void HTTP_Test_Server::record(const httplib::Request& req) {
  Recorded_Request r;
  r.method = req.method;
  r.path = req.path;
  r.target = req.target;
  r.body = req.body;
  for (const auto& h : req.headers) r.headers.emplace_back(h.first, h.second);
  std::lock_guard<std::mutex> lock(mutex_);
  client_ports_.insert(req.remote_port);
  requests_.push_back(std::move(r));
}

bool HTTP_Test_Server::start() {
  if (!server_->is_valid()) return false;
  server_->set_keep_alive_max_count(1000);
  server_->set_keep_alive_timeout(2);
  // Runs once the handler is done and before the reply goes out, with the body read.
  server_->set_post_routing_handler(
      [this](const httplib::Request& req, httplib::Response&) { record(req); });
  const int port = server_->bind_to_any_port("127.0.0.1");
  if (port <= 0) return false;
  port_ = static_cast<unsigned short>(port);
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  for (int i = 0; i < 5000 && !server_->is_running(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return server_->is_running();
}

void HTTP_Test_Server::stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  stopping_cv_.notify_all();
  if (thread_.joinable()) {
    server_->stop();
    thread_.join();
  }
}

void HTTP_Test_Server::wait_until_stopping() {
  std::unique_lock<std::mutex> lock(mutex_);
  stopping_cv_.wait(lock, [this] { return stopping_; });
}

std::vector<Recorded_Request> HTTP_Test_Server::requests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

void HTTP_Test_Server::clear_requests() {
  std::lock_guard<std::mutex> lock(mutex_);
  requests_.clear();
}

std::size_t HTTP_Test_Server::connections() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return client_ports_.size();
}

Stalling_Listener::Stalling_Listener() {
  fd_ = bind_loopback(port_);
  if (fd_ >= 0 && ::listen(fd_, 16) != 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

Stalling_Listener::~Stalling_Listener() {
  if (fd_ >= 0) ::close(fd_);
}

unsigned short unused_local_port() {
  unsigned short port = 0;
  const int fd = bind_loopback(port);
  if (fd < 0) return 0;
  ::close(fd);
  return port;
}

}  // namespace au_test
