#include "sim/common/sim_request.h"

#include <httplib.h>
#include <strings.h>

namespace au_sim {

Sim_Request to_sim_request(const httplib::Request& req) {
  Sim_Request r;
  r.method = req.method;
  r.path = req.path;
  r.target = req.target;
  const auto mark = req.target.find('?');
  if (mark != std::string::npos) r.query = req.target.substr(mark + 1);
  r.body = req.body;
  for (const auto& h : req.headers) r.headers.emplace_back(h.first, h.second);
  for (const auto& p : req.params) r.params.emplace_back(p.first, p.second);
  return r;
}

std::string Sim_Request::header(const std::string& name) const {
  for (const auto& h : headers)
    if (::strcasecmp(h.first.c_str(), name.c_str()) == 0) return h.second;
  return std::string();
}

bool Sim_Request::has_header(const std::string& name) const { return header_count(name) > 0; }

std::size_t Sim_Request::header_count(const std::string& name) const {
  std::size_t n = 0;
  for (const auto& h : headers)
    if (::strcasecmp(h.first.c_str(), name.c_str()) == 0) ++n;
  return n;
}

std::string Sim_Request::param(const std::string& name) const {
  for (const auto& p : params)
    if (p.first == name) return p.second;
  return std::string();
}

void Request_Log::add(Sim_Request request) {
  std::lock_guard<std::mutex> lock(mutex_);
  requests_.push_back(std::move(request));
}

std::vector<Sim_Request> Request_Log::all() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

std::vector<Sim_Request> Request_Log::to(const std::string& path) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Sim_Request> out;
  for (const auto& r : requests_)
    if (r.path == path) out.push_back(r);
  return out;
}

void Request_Log::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  requests_.clear();
}

}  // namespace au_sim
