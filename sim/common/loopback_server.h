// The HTTP(S) plumbing the simulators share: one handler for every method and path,
// bound to 127.0.0.1 (port 0: any free port), served on a thread of its own, and a
// stop that handlers waiting in wait_for_stop() notice at once.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace au_sim {

class Loopback_Server {
 public:
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  // Plain HTTP.
  Loopback_Server();
  // HTTPS with the given PEM files; start() fails when they do not load.
  Loopback_Server(const std::string& cert_file, const std::string& key_file);
  ~Loopback_Server();
  Loopback_Server(const Loopback_Server&) = delete;
  Loopback_Server& operator=(const Loopback_Server&) = delete;

  // Answers GET, POST, PUT, DELETE and PATCH on every path (404 while unset).
  // Set before start().
  void set_handler(Handler handler);
  // Connection tuning, before start(); cpp-httplib's defaults otherwise.
  void set_keep_alive_max_count(std::size_t count);
  void set_payload_max_length(std::size_t bytes);

  // One run per object: after stop() make a new server.
  bool start(unsigned short port = 0);
  // Idempotent; wakes every wait_for_stop() before waiting for the serving thread.
  void stop();
  unsigned short port() const { return port_; }

  // Blocks until stop() begins or the time passes; true when stopping.
  bool wait_for_stop(int milliseconds);
  bool stopping() const;

 private:
  void route_every_method();

  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  unsigned short port_ = 0;
  Handler handler_;

  mutable std::mutex mutex_;
  std::condition_variable stop_cv_;
  bool stopping_ = false;
};

}  // namespace au_sim
