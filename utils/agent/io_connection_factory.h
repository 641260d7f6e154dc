// Client-I/O connections to storage pools, by pool name.
//
//   IO_Connection_Factory::Options o;
//   if (!o.load(document)) return false;              // the agent's JSON parameters
//   IO_Connection_Factory factory(std::move(o));      // aims a REST client at backupd
//   std::unique_ptr<Client_IO_Ex> io = factory("pool-a");
//   if (!io) return false;                            // logged: unknown pool, no connection
//
// Ownership: the caller owns the factory and every connection it returns; a connection
// does not refer back to the factory and may outlive it. The factory owns its REST
// client to backupd (the upstream) and its cache of pool descriptions.
//
// Threads: set the factory up (constructor, init, options()) on one thread before
// sharing it; after that get_pool_info() and both operator() forms may be called from
// any number of threads. One mutex guards the cache and is held across the remote
// lookup, so concurrent first requests for a pool make one remote call, and requests
// for other new pools wait behind it. A connection is used by one thread at a time.
//
// Failures: init() false leaves a factory whose lookups go out on an unaimed client and
// fail. A failed lookup caches nothing (the next call asks again); a failed connection
// leaves the pool's description cached. Descriptions are never dropped, so a pointer
// from get_pool_info() stays valid while the factory lives. Nothing throws.
//
// The process-wide address of backupd, this host's access key and this agent's RPC
// listener come from WebSocket_Options, Host_Manager and HTTP_Options, which the agent
// program sets; secrets (the access key, pool keys) never reach a log line.
#pragma once

#include <ace/Thread_Mutex.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "framework/base/api.h"
#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/client_io_options.h"
#include "framework/client_io/pool_bounds.h"
#include "framework/client_io/pool_info.h"
#include "framework/http/json_restful_client.h"
#include "framework/json/value.h"

class AGENTUTIL_API IO_Connection_Factory {
 public:
  // The agent's connection parameters, as the JSON document of load() and dump() has
  // them: "is_restore", "backupd_ssl", "backupd_port", "retry_seconds", "backupd_host",
  // "access_key" (a secret), "device_uuid" and "client_io_opts" (the template of every
  // connection, in Client_IO_Base::Options' own form); optionally "local_pool_roots"
  // and "require_tls", the bounds every pool description is held to (pool_bounds.h:
  // no directory pool is allowed unless a root is given). init() replaces the backupd
  // address and the access key with the process-wide ones.
  struct Options {
    bool is_restore = false;
    bool ssl = false;
    uint16_t port = 0;
    int32_t retry_seconds = 0;  // how long pool lookups retry
    std::string host;
    std::string access_key;
    std::string device_uuid;  // "" for none
    Client_IO_Base::Options client_io_opts;
    Pool_Bounds bounds;

    // Every key but the bounds' is required. False with one log line when one is missing or of the
    // wrong type, or when the client-I/O options are refused; fields read before the
    // failure keep their new values.
    bool load(const json_spirit::Value& value);
    json_spirit::Value dump() const;
  };

  IO_Connection_Factory();
  explicit IO_Connection_Factory(Options&& options);
  IO_Connection_Factory(Client_IO_Base::Options&& client_io_opts, int retry_seconds);
  IO_Connection_Factory(const IO_Connection_Factory&) = delete;
  IO_Connection_Factory& operator=(const IO_Connection_Factory&) = delete;

  explicit operator bool() const { return inited_; }

  bool init();
  bool init(Options&& options);

  Options& options() { return options_; }
  const Options& options() const { return options_; }
  void dump_options(json_spirit::Value& out) const;

  // Aims the upstream at backupd as the process knows it (WebSocket_Options) with this
  // host's access key (Host_Manager), recording both in options().
  bool init_upstream();
  bool init_upstream(const std::string& host, uint16_t port, bool ssl,
                     const std::string& access_key);

  // The cached description of `pool`, asked of backupd on first use; null when backupd
  // does not give one.
  const Pool_Info* get_pool_info(const std::string& pool);

  // A connection to `pool` with the template options, `method` and the pool's own
  // settings; empty (and logged) on failure. A description outside the bounds is
  // refused with one line naming the pool and the rule:
  //   "Refused pool 'daily': its url file:///etc is outside the allowed local pool roots"
  std::unique_ptr<Client_IO_Ex> operator()(const std::string& pool, Compression_Method method);
  std::unique_ptr<Client_IO_Ex> operator()(const std::string& pool);

 private:
  bool inited_ = false;
  Options options_;
  JSON_RESTful_Client upstream_{true};
  std::unordered_map<std::string, Pool_Info> pools_info_;
  ACE_Thread_Mutex mutex_;
};

// Points `opts` at this agent's RPC listener for data access, when the agent program
// has set one (HTTP_Options::get_local_listen_address); otherwise leaves `opts` as is.
AGENTUTIL_API void set_d2t_access_rpc(Client_IO_Base::Options& opts);
