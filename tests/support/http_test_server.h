// A real HTTP(S) server on 127.0.0.1 (a port the kernel picks) for tests of HTTP
// clients: the simulators' loopback server and request log, with handlers routed by
// method and path pattern. Helpers for the awkward cases: a self-signed certificate
// made at run time and a listener that accepts connections but never answers.
#pragma once

#include <httplib.h>

#include <cstddef>
#include <functional>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "sim/common/loopback_server.h"
#include "sim/common/self_signed_certificate.h"
#include "sim/common/sim_request.h"

namespace au_test {

using Recorded_Request = au_sim::Sim_Request;
// The simulators' certificate maker, under the name the tests know.
using Self_Signed_Certificate = au_sim::Self_Signed_Certificate;

class HTTP_Test_Server {
 public:
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  // Plain HTTP.
  HTTP_Test_Server();
  // HTTPS with the given certificate.
  explicit HTTP_Test_Server(const Self_Signed_Certificate& cert);
  HTTP_Test_Server(const HTTP_Test_Server&) = delete;
  HTTP_Test_Server& operator=(const HTTP_Test_Server&) = delete;

  // A handler for requests whose method is `method` ("GET" answers HEAD too) and whose
  // path matches the regular expression `pattern` whole; the first registered wins,
  // and an unrouted request gets 404. Register before start().
  void on(const std::string& method, const std::string& pattern, Handler handler);

  // Binds 127.0.0.1 on a free port and serves on a thread of its own.
  bool start() { return server_.start(); }
  void stop() { server_.stop(); }
  unsigned short port() const { return server_.port(); }

  std::vector<Recorded_Request> requests() const { return log_.all(); }
  void clear_requests() { log_.clear(); }
  // Distinct client connections seen so far (by client port).
  std::size_t connections() const;

  // For handlers that must hang: blocks until stop() begins, so a stalled exchange
  // never holds the server's shutdown up.
  void wait_until_stopping();

 private:
  struct Route {
    std::string method;
    std::regex pattern;
    Handler handler;
  };
  void serve(const httplib::Request& req, httplib::Response& res);

  au_sim::Loopback_Server server_;
  std::vector<Route> routes_;
  au_sim::Request_Log log_;
  mutable std::mutex mutex_;
  std::set<int> client_ports_;
};

// A TCP port on 127.0.0.1 that completes connections (the kernel's backlog does)
// but never reads or writes: a server that stalls before answering.
class Stalling_Listener {
 public:
  Stalling_Listener();
  ~Stalling_Listener();
  Stalling_Listener(const Stalling_Listener&) = delete;
  Stalling_Listener& operator=(const Stalling_Listener&) = delete;

  bool ok() const { return fd_ >= 0; }
  unsigned short port() const { return port_; }

 private:
  int fd_ = -1;
  unsigned short port_ = 0;
};

// A port on 127.0.0.1 bound and held, never listening, until release() or the end of the
// object: connections to it are refused and nobody else can take it meanwhile.
class Reserved_Port {
 public:
  Reserved_Port();
  ~Reserved_Port() { release(); }
  Reserved_Port(const Reserved_Port&) = delete;
  Reserved_Port& operator=(const Reserved_Port&) = delete;
  unsigned short port() const { return port_; }
  void release();

 private:
  int fd_ = -1;
  unsigned short port_ = 0;
};

// A port on 127.0.0.1 where nothing listens: bound and held, never listening, until the
// process ends, so that connections are refused and no sandbox daemon started meanwhile
// can take it.
unsigned short unused_local_port();

}  // namespace au_test
