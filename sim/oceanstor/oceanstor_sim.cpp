#include "sim/oceanstor/oceanstor_sim.h"

#include <httplib.h>

#include <unistd.h>

#include <cctype>
#include <random>

#include "framework/json/writer.h"

namespace au_sim {

namespace {

constexpr const char* REST_ROOT = "/deviceManager/rest/";
constexpr const char* LOGIN_PATH = "/deviceManager/rest/xxxxx/sessions";
constexpr std::size_t ENDLESS_PIECE = 64 * 1024;

}  // namespace

std::string random_hex_text(std::size_t digits) {
  // One engine a thread: each array's lock guards only its own state, and two arrays in one
  // process log clients in at once.
  thread_local std::mt19937_64 engine{std::random_device{}()};
  static const char* const HEX = "0123456789abcdef";
  std::string out;
  for (std::size_t i = 0; i < digits; ++i) out += HEX[engine() % 16];
  return out;
}

namespace {

// The value of the cookie `name` in a Cookie header ("a=1; session=...").
std::string cookie_value(const std::string& header, const std::string& name) {
  std::size_t pos = 0;
  while (pos < header.size()) {
    std::size_t end = header.find(';', pos);
    if (end == std::string::npos) end = header.size();
    std::string item = header.substr(pos, end - pos);
    const auto first = item.find_first_not_of(' ');
    if (first != std::string::npos) item.erase(0, first);
    if (item.compare(0, name.size() + 1, name + "=") == 0) return item.substr(name.size() + 1);
    pos = end + 1;
  }
  return std::string();
}

}  // namespace

OceanStor_Sim::OceanStor_Sim() { init(); }

OceanStor_Sim::OceanStor_Sim(const std::string& cert_file, const std::string& key_file)
    : server_(cert_file, key_file) {
  init();
}

void OceanStor_Sim::init() {
  // Twenty characters, upper case, like an array's serial number.
  device_id_ = "2102351QLH" + random_hex_text(10);
  for (char& c : device_id_) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  server_.set_handler([this](const httplib::Request& req, httplib::Response& res) { serve(req, res); });
}

OceanStor_Sim::~OceanStor_Sim() {
  stop();
  // The host's devices go with the array.
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto& v : volumes_)
    if (v.second.device) ::unlink(device_path(v.second).c_str());
}

bool OceanStor_Sim::start(unsigned short port) { return server_.start(port); }

void OceanStor_Sim::stop() { server_.stop(); }

std::string OceanStor_Sim::rest_base() const { return REST_ROOT + device_id_; }

void OceanStor_Sim::set_credentials(const std::string& username, const std::string& password) {
  std::lock_guard<std::mutex> lock(mutex_);
  username_ = username;
  password_ = password;
}

void OceanStor_Sim::expire_sessions() {
  std::lock_guard<std::mutex> lock(mutex_);
  sessions_.clear();
}

std::size_t OceanStor_Sim::live_sessions() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return sessions_.size();
}

std::size_t OceanStor_Sim::logins() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return logins_;
}

void OceanStor_Sim::inject(const std::string& path, Sim_Fault fault) {
  std::lock_guard<std::mutex> lock(mutex_);
  faults_.emplace_back(path, std::move(fault));
}

void OceanStor_Sim::inject_error(const std::string& path, int64_t code, int times) {
  inject(path, Sim_Fault::reply(200, reply_text(json_spirit::Object(), code, "injected error", "retry later"),
                                times));
}

void OceanStor_Sim::inject_endless_reply(const std::string& path, int times) {
  std::lock_guard<std::mutex> lock(mutex_);
  endless_.push_back(Endless{path, times});
}

void OceanStor_Sim::set_reply(const std::string& method, const std::string& path, Sim_Reply reply) {
  std::lock_guard<std::mutex> lock(mutex_);
  replies_[{method, path}] = std::move(reply);
}

void OceanStor_Sim::clear_faults() {
  std::lock_guard<std::mutex> lock(mutex_);
  faults_.clear();
  endless_.clear();
  replies_.clear();
}

std::vector<Sim_Request> OceanStor_Sim::requests() const { return log_.all(); }

std::vector<Sim_Request> OceanStor_Sim::requests_to(const std::string& path) const { return log_.to(path); }

void OceanStor_Sim::clear_requests() { log_.clear(); }

std::string OceanStor_Sim::reply_text(const json_spirit::Value& data, int64_t code, const std::string& description,
                                      const std::string& suggestion) {
  json_spirit::Object error{{"code", code}, {"description", description}};
  if (!suggestion.empty()) error["suggestion"] = suggestion;
  return json_spirit::write(json_spirit::Object{{"data", data}, {"error", error}});
}

bool OceanStor_Sim::take_fault(const std::string& path, Sim_Fault& fault) {
  std::lock_guard<std::mutex> lock(mutex_);
  return take_path_fault(faults_, path, fault);
}

bool OceanStor_Sim::take_endless(const std::string& path) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto it = endless_.begin(); it != endless_.end(); ++it) {
    if (!it->path.empty() && it->path != path) continue;
    if (it->times > 0 && --it->times == 0) endless_.erase(it);
    return true;
  }
  return false;
}

void OceanStor_Sim::serve(const httplib::Request& req, httplib::Response& res) {
  const Sim_Request request = to_sim_request(req);
  log_.add(request);
  if (take_endless(request.path)) {
    // A JSON text that never closes: the reply goes on until the client gives up.
    res.set_chunked_content_provider("application/json", [this](std::size_t, httplib::DataSink& sink) {
      static const std::string opening = "{\"data\":\"";
      static const std::string piece(ENDLESS_PIECE, 'x');
      if (server_.stopping()) return false;
      return sink.write(opening.data(), opening.size()) && sink.write(piece.data(), piece.size());
    });
    return;
  }
  Sim_Fault fault;
  if (take_fault(request.path, fault) && serve_fault(fault, server_, res)) return;
  std::string set_cookie;
  const Sim_Reply reply = dispatch(request, set_cookie);
  res.status = reply.status;
  if (!set_cookie.empty()) res.set_header("Set-Cookie", set_cookie);
  res.set_content(reply.body, reply.content_type.c_str());
}

bool OceanStor_Sim::authorized(const Sim_Request& request) const {
  const std::string session = cookie_value(request.header("Cookie"), "session");
  const std::string prefix = "ismsession=";
  if (session.compare(0, prefix.size(), prefix) != 0) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = sessions_.find(session.substr(prefix.size()));
  return it != sessions_.end() && it->second == request.header("iBaseToken");
}

Sim_Reply OceanStor_Sim::dispatch(const Sim_Request& request, std::string& set_cookie) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto fixed = replies_.find({request.method, request.path});
    if (fixed != replies_.end()) return fixed->second;
  }
  if (request.path == LOGIN_PATH) {
    if (request.method == "POST") return on_login(request, set_cookie);
    return Sim_Reply{200, reply_text(json_spirit::Object(), BAD_PARAMETER, "The method is not supported.")};
  }
  const std::string base = rest_base() + "/";
  if (request.path.compare(0, base.size(), base) != 0 || !authorized(request)) {
    return Sim_Reply{200, reply_text(json_spirit::Object(), UNAUTHORIZED, "The user is offline.",
                                     "Log in to the system again.")};
  }
  return route(request, request.path.substr(base.size()));
}

}  // namespace au_sim
