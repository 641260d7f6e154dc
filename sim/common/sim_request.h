// What a simulator saw and what it answers: one request as it arrived, one reply,
// and the log of every request that tests read back.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace httplib {
struct Request;
}

namespace au_sim {

struct Sim_Request {
  std::string method;
  std::string path;    // decoded, without the query
  std::string target;  // the request line's target, as sent
  std::string query;   // the raw query text after "?", "" when there is none
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  std::vector<std::pair<std::string, std::string>> params;  // the query, decoded

  // First value of a header (names compare without case); "" when absent.
  std::string header(const std::string& name) const;
  bool has_header(const std::string& name) const;
  std::size_t header_count(const std::string& name) const;
  // A query parameter, decoded; "" when absent.
  std::string param(const std::string& name) const;
};

struct Sim_Reply {
  int status = 200;
  std::string body;
  std::string content_type = "application/json";
};

Sim_Request to_sim_request(const httplib::Request& req);

// Faults queued per path ("" = any path): takes the first that applies to `path`,
// spending one of its `times` (0 = forever). Call with the owner's lock held.
template <class Fault>
bool take_path_fault(std::vector<std::pair<std::string, Fault>>& faults, const std::string& path,
                     Fault& fault) {
  for (auto it = faults.begin(); it != faults.end(); ++it) {
    if (!it->first.empty() && it->first != path) continue;
    fault = it->second;
    if (it->second.times > 0 && --it->second.times == 0) faults.erase(it);
    return true;
  }
  return false;
}

// Every request in arrival order; safe to add from server threads while tests read.
class Request_Log {
 public:
  void add(Sim_Request request);
  std::vector<Sim_Request> all() const;
  std::vector<Sim_Request> to(const std::string& path) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<Sim_Request> requests_;
};

}  // namespace au_sim
