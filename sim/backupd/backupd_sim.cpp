#include "sim/backupd/backupd_sim.h"

#include <httplib.h>
#include <strings.h>

namespace au_sim {

namespace {

void send(const Sim_Reply& reply, httplib::Response& res) {
  res.status = reply.status;
  res.set_content(reply.body, reply.content_type.c_str());
}

}  // namespace

Backupd_Sim::Backupd_Sim() {
  server_.set_handler([this](const httplib::Request& req, httplib::Response& res) { serve(req, res); });
  // Clients keep one connection across a whole test; catalogs may be large.
  server_.set_keep_alive_max_count(1000);
  server_.set_payload_max_length(64u << 20);
}

Backupd_Sim::~Backupd_Sim() { stop(); }

bool Backupd_Sim::start(unsigned short port) { return server_.start(port); }

void Backupd_Sim::stop() { server_.stop(); }

std::string Backupd_Sim::url() const { return "http://127.0.0.1:" + std::to_string(port()); }

bool Backupd_Sim::wait_for_stop(int milliseconds) { return server_.wait_for_stop(milliseconds); }

void Backupd_Sim::set_jsonrpc_handler(Handler handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  jsonrpc_handler_ = std::move(handler);
}

void Backupd_Sim::set_route(const std::string& method, const std::string& path, Handler handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  routes_[Route_Key{method, path}] = std::move(handler);
}

void Backupd_Sim::set_reply(const std::string& method, const std::string& path, Sim_Reply reply) {
  std::lock_guard<std::mutex> lock(mutex_);
  replies_[Route_Key{method, path}] = std::move(reply);
}

void Backupd_Sim::inject(const std::string& path, Sim_Fault fault) {
  std::lock_guard<std::mutex> lock(mutex_);
  faults_.emplace_back(path, std::move(fault));
}

void Backupd_Sim::clear_faults() {
  std::lock_guard<std::mutex> lock(mutex_);
  faults_.clear();
  replies_.clear();
}

void Backupd_Sim::require_access_key(const std::string& key) {
  std::lock_guard<std::mutex> lock(mutex_);
  access_key_ = key;
}

bool Backupd_Sim::take_fault(const std::string& path, Sim_Fault& fault) {
  std::lock_guard<std::mutex> lock(mutex_);
  return take_path_fault(faults_, path, fault);
}

bool Backupd_Sim::access_denied(const Sim_Request& request) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return !access_key_.empty() && request.header(ACCESS_KEY_HEADER) != access_key_;
}

void Backupd_Sim::serve(const httplib::Request& req, httplib::Response& res) {
  Sim_Request request = to_sim_request(req);
  log_.add(request);
  Sim_Fault fault;
  if (take_fault(request.path, fault) && serve_fault(fault, server_, res)) return;
  send(dispatch(request), res);
}

Sim_Reply Backupd_Sim::dispatch(const Sim_Request& request) {
  if (access_denied(request)) return Sim_Reply{401, "{\"error\":\"access denied\"}"};
  Handler handler;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const Route_Key key{request.method, request.path};
    const auto reply = replies_.find(key);
    if (reply != replies_.end()) return reply->second;
    const auto route = routes_.find(key);
    if (route != routes_.end()) handler = route->second;
    else if (request.path == JSONRPC_PATH) handler = jsonrpc_handler_;
  }
  if (handler) return handler(request);
  if (request.path == JSONRPC_PATH) return Sim_Reply{404, "{\"error\":\"no JSON-RPC service\"}"};
  return built_in(request);
}

std::vector<Sim_Request> Backupd_Sim::requests() const { return log_.all(); }

std::vector<Sim_Request> Backupd_Sim::requests_to(const std::string& path) const { return log_.to(path); }

void Backupd_Sim::clear_requests() { log_.clear(); }

}  // namespace au_sim
