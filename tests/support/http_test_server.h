// A real HTTP(S) server on 127.0.0.1 (a port the kernel picks) for tests of HTTP
// clients: handlers are cpp-httplib's, every request is recorded as it arrived.
// Helpers for the awkward cases: a self-signed certificate made at run time and a
// listener that accepts connections but never answers.
#pragma once

#include <httplib.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sim/common/self_signed_certificate.h"

namespace au_test {

struct Recorded_Request {
  std::string method;
  std::string path;    // decoded, without the query
  std::string target;  // the request line's target as sent
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;

  // The query part of `target`, "" when there is none.
  std::string query() const;
  // First value of a header (names compare without case); "" when absent.
  std::string header(const std::string& name) const;
  bool has_header(const std::string& name) const;
  std::size_t header_count(const std::string& name) const;
};

// The simulators' certificate maker, under the name the tests know.
using Self_Signed_Certificate = au_sim::Self_Signed_Certificate;

class HTTP_Test_Server {
 public:
  using Handler = httplib::Server::Handler;

  // Plain HTTP.
  HTTP_Test_Server();
  // HTTPS with the given certificate.
  explicit HTTP_Test_Server(const Self_Signed_Certificate& cert);
  ~HTTP_Test_Server();
  HTTP_Test_Server(const HTTP_Test_Server&) = delete;
  HTTP_Test_Server& operator=(const HTTP_Test_Server&) = delete;

  // Registers a handler; method is "GET", "POST", "PUT", "DELETE", "PATCH" or
  // "OPTIONS" (GET handlers also answer HEAD). Register before start().
  void on(const std::string& method, const std::string& pattern, Handler handler);

  // Binds 127.0.0.1 on a free port and serves on a thread of its own.
  bool start();
  void stop();
  unsigned short port() const { return port_; }

  std::vector<Recorded_Request> requests() const;
  void clear_requests();
  // Distinct client connections seen so far (by client port).
  std::size_t connections() const;

  // For handlers that must hang: blocks until stop() begins, so a stalled exchange
  // never holds the server's shutdown up.
  void wait_until_stopping();

 private:
  void record(const httplib::Request& req);

  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  unsigned short port_ = 0;
  mutable std::mutex mutex_;
  std::condition_variable stopping_cv_;
  bool stopping_ = false;
  std::vector<Recorded_Request> requests_;
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

// A port on 127.0.0.1 where nothing listens (bound once, then released).
unsigned short unused_local_port();

}  // namespace au_test
