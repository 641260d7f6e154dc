// The built-in behaviour of the simulated servers: what backupd and storaged answer
// when nothing is injected.
#include <algorithm>

#include "framework/json/reader.h"
#include "framework/json/writer.h"
#include "sim/backupd/backupd_sim.h"

namespace au_sim {

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

Sim_Reply json_reply(int status, const Value& body) { return Sim_Reply{status, json_spirit::write(body)}; }

Sim_Reply error_reply(int status, const std::string& message) {
  return json_reply(status, Object{{"error", message}});
}

// The request body as a JSON object; false when it is anything else.
bool body_object(const Sim_Request& request, Value& out) {
  return json_spirit::read(request.body, out) && out.type() == json_spirit::obj_type;
}

const Value* member(const Value& object, const std::string& key) {
  const auto& obj = object.get_obj();
  const auto it = obj.find(key);
  return it == obj.end() ? nullptr : &it->second;
}

bool has_string(const Value& object, const std::string& key) {
  const Value* v = member(object, key);
  return v != nullptr && v->type() == json_spirit::str_type && !v->get_str().empty();
}

}  // namespace

Sim_Reply Backupd_Sim::built_in(const Sim_Request& request) {
  if (request.path == INSTANCES_PATH) return on_instances(request);
  if (request.path == RESOURCES_PATH) return on_resources(request);
  if (request.path == JOB_ACTION_PATH) return on_job_action(request);
  if (request.path == ALERTS_PATH) return on_alerts(request);
  if (request.path == INCARNATION_PATH) return on_incarnation(request);
  if (request.path.rfind(POOLS_PATH, 0) == 0) return on_pool(request);
  return on_catalog(request);
}

Sim_Reply Backupd_Sim::on_instances(const Sim_Request& request) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (request.method == "POST") {
    Value body;
    if (!body_object(request, body) || !has_string(body, "uuid"))
      return error_reply(400, "instance without uuid");
    const std::string uuid = member(body, "uuid")->get_str();
    instances_[uuid] = body;
    return json_reply(200, Object{{"uuid", uuid}});
  }
  const std::string uuid = request.param("uuid");
  const auto it = instances_.find(uuid);
  if (request.method == "GET") {
    if (it == instances_.end()) return error_reply(404, "no such instance");
    return json_reply(200, it->second);
  }
  if (it == instances_.end()) return error_reply(404, "no such instance");
  if (request.method == "DELETE") {
    instances_.erase(it);
    return json_reply(200, Object{});
  }
  if (request.method == "PUT") {
    Value body;
    if (!body_object(request, body) || member(body, "extended_attrs") == nullptr)
      return error_reply(400, "nothing to update");
    it->second.get_obj()["extended_attrs"] = *member(body, "extended_attrs");
    return json_reply(200, Object{});
  }
  return error_reply(405, "method not allowed");
}

Sim_Reply Backupd_Sim::on_resources(const Sim_Request& request) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (request.method == "DELETE") {
    const std::string uuid = request.param("instance_uuid");
    if (uuid.empty() || request.param("feature") != "backup")
      return error_reply(400, "instance_uuid and feature required");
    if (instances_.find(uuid) == instances_.end()) return error_reply(404, "no such instance");
    removed_resources_.push_back(uuid);
    return json_reply(200, Object{});
  }
  if (request.method == "GET") {
    // A listing of one row per matching resource, as catalog readers expect.
    Array rows;
    const auto it = instances_.find(request.param("uuid"));
    if (it != instances_.end())
      rows.push_back(Object{{"uuid", it->first}, {"instances", Array{it->second}}});
    return json_reply(200, Object{{"rows", rows}, {"total", static_cast<int>(rows.size())}});
  }
  return error_reply(405, "method not allowed");
}

Sim_Reply Backupd_Sim::on_job_action(const Sim_Request& request) {
  if (request.method != "POST") return error_reply(405, "method not allowed");
  Value body;
  if (request.param("job_uuid").empty() || !body_object(request, body) ||
      !has_string(body, "action") || !has_string(body, "agent"))
    return error_reply(400, "job_uuid, action and agent required");
  std::lock_guard<std::mutex> lock(mutex_);
  job_actions_.push_back(body);
  return json_reply(200, Object{{"result", "accepted"}});
}

Sim_Reply Backupd_Sim::on_alerts(const Sim_Request& request) {
  if (request.method != "POST") return error_reply(405, "method not allowed");
  Value body;
  const Value* error_id = nullptr;
  if (body_object(request, body)) error_id = member(body, "error_id");
  if (error_id == nullptr || error_id->type() != json_spirit::int_type)
    return error_reply(400, "error_id required");
  std::lock_guard<std::mutex> lock(mutex_);
  alerts_.push_back(body);
  return json_reply(200, Object{{"alert_id", static_cast<int>(alerts_.size())}});
}

Sim_Reply Backupd_Sim::on_incarnation(const Sim_Request& request) {
  if (request.method != "POST") return error_reply(405, "method not allowed");
  Value body;
  if (!body_object(request, body) || !has_string(body, "pool_uuid"))
    return error_reply(400, "pool_uuid required");
  const Value* catalogs = member(body, "catalog_uuids");
  if (catalogs == nullptr || catalogs->type() != json_spirit::array_type)
    return error_reply(400, "catalog_uuids required");
  std::lock_guard<std::mutex> lock(mutex_);
  Array answer;
  for (const auto& c : catalogs->get_array()) {
    if (c.type() != json_spirit::str_type) return error_reply(400, "catalog uuid not a string");
    const auto it = catalog_states_.find(c.get_str());
    Array states;
    if (it == catalog_states_.end()) states.push_back("offline");
    else for (const auto& s : it->second) states.push_back(s);
    answer.push_back(Object{{"catalog_uuid", c}, {"pool_uuid", *member(body, "pool_uuid")},
                            {"state", states}});
  }
  return json_reply(200, answer);
}

// Any other path is a catalog (or a storaged document): POST appends a row,
// GET lists the rows, DELETE drops them.
Sim_Reply Backupd_Sim::on_catalog(const Sim_Request& request) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (request.method == "POST" || request.method == "PUT") {
    Value body;
    if (!json_spirit::read(request.body, body)) return error_reply(400, "body is not JSON");
    catalogs_[request.path].push_back(body);
    return json_reply(200, Object{{"result", "stored"}});
  }
  const auto it = catalogs_.find(request.path);
  if (it == catalogs_.end()) return error_reply(404, "no such catalog");
  if (request.method == "GET")
    return json_reply(200, Object{{"rows", it->second},
                                  {"total", static_cast<int>(it->second.size())}});
  if (request.method == "DELETE") {
    catalogs_.erase(it);
    return json_reply(200, Object{});
  }
  return error_reply(405, "method not allowed");
}

void Backupd_Sim::set_catalog_states(const std::string& catalog_uuid,
                                     std::vector<std::string> states) {
  std::lock_guard<std::mutex> lock(mutex_);
  catalog_states_[catalog_uuid] = std::move(states);
}

void Backupd_Sim::set_catalog_rows(const std::string& path, json_spirit::Array rows) {
  std::lock_guard<std::mutex> lock(mutex_);
  catalogs_[path] = std::move(rows);
}

json_spirit::Array Backupd_Sim::catalog_rows(const std::string& path) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = catalogs_.find(path);
  return it == catalogs_.end() ? Array{} : it->second;
}

std::map<std::string, json_spirit::Value> Backupd_Sim::instances() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return instances_;
}

void Backupd_Sim::put_instance(const json_spirit::Value& instance) {
  if (instance.type() != json_spirit::obj_type || !has_string(instance, "uuid")) return;
  std::lock_guard<std::mutex> lock(mutex_);
  instances_[member(instance, "uuid")->get_str()] = instance;
}

std::vector<std::string> Backupd_Sim::removed_resources() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return removed_resources_;
}

std::vector<json_spirit::Value> Backupd_Sim::job_actions() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return job_actions_;
}

std::vector<json_spirit::Value> Backupd_Sim::alerts() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return alerts_;
}

}  // namespace au_sim
