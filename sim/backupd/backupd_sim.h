// An in-process stand-in for the backup server (backupd) and the storage-pool
// service (storaged), speaking HTTP on 127.0.0.1 at a port the kernel picks.
//
// It keeps just enough state to answer the agent helpers the way the real servers
// do (instances, resources, job actions, alerts, catalogs, catalog incarnations,
// storage-pool descriptions),
// records every request as it arrived, and misbehaves on demand: any status, any
// body, a delay, or a connection dropped in the middle of the reply. "/d2/jr" is
// served by whatever handler is plugged in with set_jsonrpc_handler().
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "framework/json/value.h"
#include "sim/common/loopback_server.h"
#include "sim/common/sim_fault.h"
#include "sim/common/sim_request.h"

namespace au_sim {

class Backupd_Sim {
 public:
  using Handler = std::function<Sim_Reply(const Sim_Request&)>;

  // The REST paths of the backup server.
  static constexpr const char* INSTANCES_PATH = "/d2/r/v2/instances";
  static constexpr const char* RESOURCES_PATH = "/d2/r/v2/resources";
  static constexpr const char* JOB_ACTION_PATH = "/d2/r/v2/job/action";
  static constexpr const char* ALERTS_PATH = "/d2/r/v2/alerts";
  static constexpr const char* INCARNATION_PATH = "/d2/r/storages/catalogs/incarnation";
  static constexpr const char* JSONRPC_PATH = "/d2/jr";
  // A pool's description: GET POOLS_PATH + <pool name>, with the query parameters
  // "device_uuid" (optional) and "is_restore".
  static constexpr const char* POOLS_PATH = "/d2/r/v2/pools/";
  // The header that carries the agent's access key.
  static constexpr const char* ACCESS_KEY_HEADER = "X-Access-Key";

  Backupd_Sim();
  ~Backupd_Sim();
  Backupd_Sim(const Backupd_Sim&) = delete;
  Backupd_Sim& operator=(const Backupd_Sim&) = delete;

  // Binds 127.0.0.1 (port 0: any free port) and serves on a thread of its own.
  // One run per object: after stop() make a new simulator.
  bool start(unsigned short port = 0);
  // Idempotent; delayed handlers are woken so that stopping never waits on them.
  void stop();
  unsigned short port() const { return server_.port(); }
  // "http://127.0.0.1:<port>"
  std::string url() const;

  // "/d2/jr": the handler answers every POST there. Without one the endpoint
  // answers 404. May be set or replaced while serving.
  void set_jsonrpc_handler(Handler handler);
  // Any other exact path and method; takes precedence over the built-in routes.
  void set_route(const std::string& method, const std::string& path, Handler handler);
  // A fixed reply for a method and path until cleared (clear_faults()).
  void set_reply(const std::string& method, const std::string& path, Sim_Reply reply);
  // Misbehaviour for requests to `path` ("" matches every path).
  void inject(const std::string& path, Sim_Fault fault);
  void clear_faults();

  // When set, requests without this value in ACCESS_KEY_HEADER are answered 401.
  void require_access_key(const std::string& key);

  // Catalog incarnations: the states reported for a catalog uuid ("offline" when
  // not set).
  void set_catalog_states(const std::string& catalog_uuid, std::vector<std::string> states);
  // Rows served at a catalog path (GET answers {"rows": rows}); POSTs append.
  void set_catalog_rows(const std::string& path, json_spirit::Array rows);
  json_spirit::Array catalog_rows(const std::string& path) const;

  // Storage pools by name. A GET for a pool not set is answered 404; a set one with its
  // description as given (an object; see framework/client_io/pool_info.h for its
  // members). add_pool describes a plain pool at `url`: no encryption, no S3 keys.
  void set_pool(const std::string& name, json_spirit::Value description);
  void add_pool(const std::string& name, const std::string& url);
  // The recorded requests for one pool's description.
  std::vector<Sim_Request> pool_requests(const std::string& name) const;

  // The server's view of the instances, by uuid.
  std::map<std::string, json_spirit::Value> instances() const;
  void put_instance(const json_spirit::Value& instance);
  // Instance uuids whose backup resources were removed, in order.
  std::vector<std::string> removed_resources() const;
  // Bodies accepted at the job-action and alert paths, in order.
  std::vector<json_spirit::Value> job_actions() const;
  std::vector<json_spirit::Value> alerts() const;

  std::vector<Sim_Request> requests() const;
  // Requests to one path, in order.
  std::vector<Sim_Request> requests_to(const std::string& path) const;
  void clear_requests();

  // Blocks until stop() begins or the time passes; true when stopping.
  bool wait_for_stop(int milliseconds);

 private:
  struct Route_Key {
    std::string method;
    std::string path;
    bool operator<(const Route_Key& o) const {
      return method != o.method ? method < o.method : path < o.path;
    }
  };

  void serve(const httplib::Request& req, httplib::Response& res);
  Sim_Reply dispatch(const Sim_Request& request);
  Sim_Reply built_in(const Sim_Request& request);
  bool take_fault(const std::string& path, Sim_Fault& fault);
  bool access_denied(const Sim_Request& request) const;

  Sim_Reply on_instances(const Sim_Request& request);
  Sim_Reply on_resources(const Sim_Request& request);
  Sim_Reply on_job_action(const Sim_Request& request);
  Sim_Reply on_alerts(const Sim_Request& request);
  Sim_Reply on_incarnation(const Sim_Request& request);
  Sim_Reply on_catalog(const Sim_Request& request);
  Sim_Reply on_pool(const Sim_Request& request);

  Loopback_Server server_;

  mutable std::mutex mutex_;
  Request_Log log_;
  std::vector<std::pair<std::string, Sim_Fault>> faults_;
  std::map<Route_Key, Handler> routes_;
  std::map<Route_Key, Sim_Reply> replies_;
  Handler jsonrpc_handler_;
  std::string access_key_;

  std::map<std::string, json_spirit::Value> instances_;
  std::vector<std::string> removed_resources_;
  std::vector<json_spirit::Value> job_actions_;
  std::vector<json_spirit::Value> alerts_;
  std::map<std::string, std::vector<std::string>> catalog_states_;
  std::map<std::string, json_spirit::Array> catalogs_;
  std::map<std::string, json_spirit::Value> pools_;
};

}  // namespace au_sim
