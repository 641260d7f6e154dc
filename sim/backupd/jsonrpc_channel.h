// The backup server's JSON-RPC endpoint "/d2/jr" as far as agents use it: the one
// method "channel.forward", which delivers a call to the agent holding a channel and
// returns its answer. Behind each channel sits a Fake_Agent that answers the mount
// helpers' actions ("mount", "umount", "check_storage_size") from a little state of
// its own. Faults make the server answer the way broken ones do.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "framework/json/value.h"
#include "sim/backupd/backupd_sim.h"

namespace au_sim {

// An agent at the far end of a channel. Thread-safe: the server calls it from its
// own threads while a test looks at it.
class Fake_Agent {
 public:
  // A JSON-RPC error the agent answers with, or a result.
  struct Answer {
    bool is_error = false;
    int code = 0;
    std::string message;
    json_spirit::Value result;
  };

  // Sizes "check_storage_size" reports; a file not listed makes it answer
  // {"result": false}.
  void set_file_size(const std::string& path, uint64_t size);
  // "mount" of this remote URL answers {"result": false}.
  void refuse_remote(const std::string& remote_url);
  // Directories mounted so far (a directory can be mounted before any call).
  std::set<std::string> mounts() const;
  void add_mount(const std::string& dir);

  // Every call as it arrived: {"method": ..., "params": ...}.
  std::vector<json_spirit::Value> calls() const;

  // Answers one forwarded call by its params' "action".
  Answer answer(const std::string& method, const json_spirit::Value& params);

 private:
  Answer mount(const json_spirit::Object& params);
  Answer umount(const json_spirit::Object& params);
  Answer check_storage_size(const json_spirit::Object& params);

  mutable std::mutex mutex_;
  std::map<std::string, uint64_t> file_sizes_;
  std::set<std::string> refused_remotes_;
  std::set<std::string> mounts_;
  std::vector<json_spirit::Value> calls_;
};

// How the next "channel.forward" goes wrong.
struct Channel_Fault {
  enum Kind {
    // A JSON-RPC error reply with `code` and `message`.
    ERROR_REPLY,
    // The agent's result replaced by `value` (a type the caller does not expect).
    RESULT_VALUE,
    // HTTP 200 with an empty body: the agent never answered.
    NO_REPLY,
    // A body that is not JSON.
    MALFORMED,
    // A well-formed result for another request id.
    WRONG_ID,
    // A reply that is neither a result nor an error (a call).
    NOT_A_REPLY,
  };
  Kind kind = ERROR_REPLY;
  int code = -32000;
  std::string message;
  json_spirit::Value value;
  // Forwards affected; negative: every one until cleared.
  int times = 1;
};

class JSON_RPC_Channel {
 public:
  static constexpr const char* FORWARD_METHOD = "channel.forward";
  // The error code of a forward to a channel nobody holds.
  static constexpr int NO_SUCH_CHANNEL = -32010;

  // `agent` answers what is forwarded to `channel_id`.
  void add_agent(const std::string& channel_id, std::shared_ptr<Fake_Agent> agent);
  void inject(Channel_Fault fault);
  void clear_faults();

  // Plugs this channel into the simulator's "/d2/jr". The channel must outlive the
  // simulator's serving (stop it first).
  void attach(Backupd_Sim& sim);

  // One POST to "/d2/jr".
  Sim_Reply handle(const Sim_Request& request);

  // The params of every well-formed "channel.forward", in order.
  std::vector<json_spirit::Value> forwarded() const;

 private:
  Sim_Reply forward(const json_spirit::Value& id, const json_spirit::Value& params);
  bool take_fault(Channel_Fault& fault);
  std::shared_ptr<Fake_Agent> agent(const std::string& channel_id) const;

  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<Fake_Agent>> agents_;
  std::vector<Channel_Fault> faults_;
  std::vector<json_spirit::Value> forwarded_;
};

}  // namespace au_sim
