#include "sim/backupd/jsonrpc_channel.h"

#include <string>
#include <utility>

#include "framework/base/base64.h"
#include "framework/json/reader.h"
#include "framework/json/writer.h"
#include "framework/jsonrpc/json_rpc_object.h"

namespace au_sim {

namespace {

using json_spirit::Object;
using json_spirit::Value;

Fake_Agent::Answer error(int code, std::string message) {
  Fake_Agent::Answer a;
  a.is_error = true;
  a.code = code;
  a.message = std::move(message);
  return a;
}

Fake_Agent::Answer result(Value v) {
  Fake_Agent::Answer a;
  a.result = std::move(v);
  return a;
}

const Value* member(const Object& o, const char* key, json_spirit::Value_type type) {
  const auto it = o.find(key);
  if (it == o.end() || it->second.type() != type) return nullptr;
  return &it->second;
}

bool has_string(const Object& o, const char* key) {
  return member(o, key, json_spirit::str_type) != nullptr;
}

bool has_base64(const Object& o, const char* key) {
  const Value* v = member(o, key, json_spirit::str_type);
  std::string bytes;
  return v != nullptr && base64_decode(v->get_str(), bytes) && !bytes.empty();
}

Sim_Reply json_reply(const JSON_RPC_Object& message) {
  return Sim_Reply{200, json_spirit::write(message.to_json())};
}

Sim_Reply error_reply(const Value& id, int code, const std::string& message) {
  JSON_RPC_Object o;
  o.kind = JSON_RPC_Object::KIND_ERROR;
  o.id = id;
  o.error_code = code;
  o.error_message = message;
  return json_reply(o);
}

Sim_Reply result_reply(const Value& id, const Value& value) {
  JSON_RPC_Object o;
  o.kind = JSON_RPC_Object::KIND_RESULT;
  o.id = id;
  o.result = value;
  return json_reply(o);
}

Sim_Reply faulty_reply(const Channel_Fault& fault, const Value& id, const Value& agent_result) {
  switch (fault.kind) {
    case Channel_Fault::ERROR_REPLY:
      return error_reply(id, fault.code, fault.message);
    case Channel_Fault::RESULT_VALUE:
      return result_reply(id, fault.value);
    case Channel_Fault::NO_REPLY:
      return Sim_Reply{200, ""};
    case Channel_Fault::MALFORMED:
      return Sim_Reply{200, "{\"jsonrpc\": \"2.0\", \"result\": tru"};
    case Channel_Fault::WRONG_ID:
      return result_reply(Value("not-" + json_spirit::write(id)), agent_result);
    case Channel_Fault::NOT_A_REPLY: {
      JSON_RPC_Object call;
      call.kind = JSON_RPC_Object::KIND_REQUEST;
      call.id = id;
      call.method = "agent.ping";
      return json_reply(call);
    }
  }
  return Sim_Reply{500, ""};
}

}  // namespace

void Fake_Agent::set_file_size(const std::string& path, uint64_t size) {
  std::lock_guard<std::mutex> lock(mutex_);
  file_sizes_[path] = size;
}

void Fake_Agent::refuse_remote(const std::string& remote_url) {
  std::lock_guard<std::mutex> lock(mutex_);
  refused_remotes_.insert(remote_url);
}

std::set<std::string> Fake_Agent::mounts() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return mounts_;
}

void Fake_Agent::add_mount(const std::string& dir) {
  std::lock_guard<std::mutex> lock(mutex_);
  mounts_.insert(dir);
}

std::vector<Value> Fake_Agent::calls() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

Fake_Agent::Answer Fake_Agent::answer(const std::string& method, const Value& params) {
  std::lock_guard<std::mutex> lock(mutex_);
  calls_.push_back(Object{{"method", method}, {"params", params}});
  if (params.type() != json_spirit::obj_type)
    return error(JSON_RPC_Object::INVALID_PARAMS, "params must be an object");
  const Object& p = params.get_obj();
  const Value* action = member(p, "action", json_spirit::str_type);
  if (action == nullptr) return error(JSON_RPC_Object::INVALID_PARAMS, "no action");
  if (action->get_str() == "mount") return mount(p);
  if (action->get_str() == "umount") return umount(p);
  if (action->get_str() == "check_storage_size") return check_storage_size(p);
  return error(JSON_RPC_Object::METHOD_NOT_FOUND, "unknown action " + action->get_str());
}

Fake_Agent::Answer Fake_Agent::mount(const Object& p) {
  if (!has_string(p, "remote_url") || !has_string(p, "mnt") || !has_string(p, "user") ||
      member(p, "retry_timeout", json_spirit::int_type) == nullptr ||
      member(p, "limit_rate", json_spirit::int_type) == nullptr)
    return error(JSON_RPC_Object::INVALID_PARAMS, "mount needs remote_url, mnt, user, "
                                                  "retry_timeout and limit_rate");
  // A key or IV that does not decode would leave the mount unreadable.
  if (p.count("encryption_method") != 0 &&
      (!has_base64(p, "encryption_key") || !has_base64(p, "encryption_iv")))
    return error(JSON_RPC_Object::INVALID_PARAMS, "bad encryption key or iv");
  if (refused_remotes_.count(p.at("remote_url").get_str()) != 0)
    return result(Object{{"result", false}});
  const bool had = !mounts_.insert(p.at("mnt").get_str()).second;
  return result(Object{{"result", true}, {"has_mounted", had}});
}

Fake_Agent::Answer Fake_Agent::umount(const Object& p) {
  if (!has_string(p, "mnt")) return error(JSON_RPC_Object::INVALID_PARAMS, "umount needs mnt");
  return result(Object{{"result", mounts_.erase(p.at("mnt").get_str()) != 0}});
}

Fake_Agent::Answer Fake_Agent::check_storage_size(const Object& p) {
  const Value* files = member(p, "files", json_spirit::array_type);
  if (files == nullptr) return error(JSON_RPC_Object::INVALID_PARAMS, "files must be an array");
  uint64_t total = 0;
  for (const Value& f : files->get_array()) {
    const auto it = f.type() == json_spirit::str_type ? file_sizes_.find(f.get_str())
                                                       : file_sizes_.end();
    if (it == file_sizes_.end()) return result(Object{{"result", false}});
    total += it->second;
  }
  return result(Object{{"result", true}, {"total_size", total}});
}

void JSON_RPC_Channel::add_agent(const std::string& channel_id, std::shared_ptr<Fake_Agent> agent) {
  std::lock_guard<std::mutex> lock(mutex_);
  agents_[channel_id] = std::move(agent);
}

void JSON_RPC_Channel::inject(Channel_Fault fault) {
  std::lock_guard<std::mutex> lock(mutex_);
  faults_.push_back(std::move(fault));
}

void JSON_RPC_Channel::clear_faults() {
  std::lock_guard<std::mutex> lock(mutex_);
  faults_.clear();
}

void JSON_RPC_Channel::attach(Backupd_Sim& sim) {
  sim.set_jsonrpc_handler([this](const Sim_Request& request) { return handle(request); });
}

std::vector<Value> JSON_RPC_Channel::forwarded() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return forwarded_;
}

bool JSON_RPC_Channel::take_fault(Channel_Fault& fault) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (faults_.empty()) return false;
  fault = faults_.front();
  if (faults_.front().times > 0 && --faults_.front().times == 0) faults_.erase(faults_.begin());
  return true;
}

std::shared_ptr<Fake_Agent> JSON_RPC_Channel::agent(const std::string& channel_id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = agents_.find(channel_id);
  return it == agents_.end() ? nullptr : it->second;
}

Sim_Reply JSON_RPC_Channel::handle(const Sim_Request& request) {
  Value body;
  if (!json_spirit::read(request.body, body))
    return error_reply(Value(), JSON_RPC_Object::PARSE_ERROR, "Parse error");
  JSON_RPC_Object call;
  std::string why;
  if (!call.from_json(body, why) || call.kind != JSON_RPC_Object::KIND_REQUEST)
    return error_reply(Value(), JSON_RPC_Object::INVALID_REQUEST, "Invalid Request");
  if (call.method != FORWARD_METHOD)
    return error_reply(call.id, JSON_RPC_Object::METHOD_NOT_FOUND, "Method not found");
  return forward(call.id, call.params);
}

Sim_Reply JSON_RPC_Channel::forward(const Value& id, const Value& params) {
  const Object empty;
  const Object& p = params.type() == json_spirit::obj_type ? params.get_obj() : empty;
  const Value* channel = member(p, "channel_id", json_spirit::str_type);
  const Value* type = member(p, "channel_type", json_spirit::str_type);
  const Value* call = member(p, "jsonrpc_request", json_spirit::obj_type);
  const Value* method = call ? member(call->get_obj(), "method", json_spirit::str_type) : nullptr;
  if (channel == nullptr || type == nullptr || type->get_str() != "agent" || method == nullptr ||
      call->get_obj().count("params") == 0)
    return error_reply(id, JSON_RPC_Object::INVALID_PARAMS, "Invalid params");
  {
    std::lock_guard<std::mutex> lock(mutex_);
    forwarded_.push_back(params);
  }
  std::shared_ptr<Fake_Agent> target = agent(channel->get_str());
  if (!target)
    return error_reply(id, NO_SUCH_CHANNEL, "channel '" + channel->get_str() + "' is not connected");
  const Fake_Agent::Answer answer = target->answer(method->get_str(), call->get_obj().at("params"));
  Channel_Fault fault;
  if (take_fault(fault)) return faulty_reply(fault, id, answer.result);
  if (answer.is_error) return error_reply(id, answer.code, answer.message);
  return result_reply(id, answer.result);
}

}  // namespace au_sim
