// Storage-pool descriptions as the backup server gives them to agents.
#include <cstring>

#include "framework/json/writer.h"
#include "sim/backupd/backupd_sim.h"

namespace au_sim {

Sim_Reply Backupd_Sim::on_pool(const Sim_Request& request) {
  if (request.method != "GET") return Sim_Reply{405, R"({"error":"method not allowed"})"};
  const std::string name = request.path.substr(std::strlen(POOLS_PATH));
  const std::string restore = request.param("is_restore");
  if (restore != "true" && restore != "false")
    return Sim_Reply{400, R"({"error":"is_restore must be true or false"})"};
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = pools_.find(name);
  if (it == pools_.end()) return Sim_Reply{404, R"({"error":"no such pool"})"};
  return Sim_Reply{200, json_spirit::write(it->second)};
}

void Backupd_Sim::set_pool(const std::string& name, json_spirit::Value description) {
  std::lock_guard<std::mutex> lock(mutex_);
  pools_[name] = std::move(description);
}

void Backupd_Sim::add_pool(const std::string& name, const std::string& url) {
  set_pool(name, json_spirit::Object{{"uuid", "uuid-of-" + name},
                                     {"name", name},
                                     {"url", url},
                                     {"cipher", "none"}});
}

std::vector<Sim_Request> Backupd_Sim::pool_requests(const std::string& name) const {
  return requests_to(POOLS_PATH + name);
}

}  // namespace au_sim
