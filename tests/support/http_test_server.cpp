#include "tests/support/http_test_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

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

namespace {

// Many short exchanges on one kept-alive connection, as the clients under test make.
constexpr std::size_t KEEP_ALIVE_REQUESTS = 1000;
constexpr int STOP_POLL_MS = 60 * 1000;

}  // namespace

HTTP_Test_Server::HTTP_Test_Server() {
  server_.set_handler([this](const httplib::Request& req, httplib::Response& res) { serve(req, res); });
  server_.set_keep_alive_max_count(KEEP_ALIVE_REQUESTS);
}

HTTP_Test_Server::HTTP_Test_Server(const Self_Signed_Certificate& cert)
    : server_(cert.cert_file(), cert.key_file()) {
  server_.set_handler([this](const httplib::Request& req, httplib::Response& res) { serve(req, res); });
  server_.set_keep_alive_max_count(KEEP_ALIVE_REQUESTS);
}

void HTTP_Test_Server::on(const std::string& method, const std::string& pattern, Handler handler) {
  routes_.push_back(Route{method, std::regex(pattern), std::move(handler)});
}

void HTTP_Test_Server::serve(const httplib::Request& req, httplib::Response& res) {
  log_.add(au_sim::to_sim_request(req));
  {
    std::lock_guard<std::mutex> lock(mutex_);
    client_ports_.insert(req.remote_port);
  }
  const std::string method = req.method == "HEAD" ? "GET" : req.method;
  for (const auto& r : routes_) {
    if (r.method == method && std::regex_match(req.path, r.pattern)) {
      r.handler(req, res);
      return;
    }
  }
  res.status = 404;
}

std::size_t HTTP_Test_Server::connections() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return client_ports_.size();
}

void HTTP_Test_Server::wait_until_stopping() {
  while (!server_.wait_for_stop(STOP_POLL_MS)) {
  }
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

Reserved_Port::Reserved_Port() { fd_ = bind_loopback(port_); }

void Reserved_Port::release() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

unsigned short unused_local_port() {
  unsigned short port = 0;
  if (bind_loopback(port) < 0) return 0;  // the descriptor is held on purpose
  return port;
}

}  // namespace au_test
