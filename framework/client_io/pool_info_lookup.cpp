// The remote pool lookup of pool_info.h: one GET, retried while the backup server is
// unreachable or failing (5xx), never when it answers that it does not know the pool.
#include <ace/Log_Msg.h>
#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <memory>
#include <thread>

#include "framework/base/exponential_backoff.h"
#include "framework/client_io/pool_info.h"
#include "framework/http/json_restful_client.h"

namespace {

constexpr const char* POOLS_PATH = "/d2/r/v2/pools/";
// Pauses between attempts, milliseconds: 250 doubling up to 8 s, jittered so that
// agents restarted together do not ask in step.
constexpr unsigned RETRY_SLOT_MS = 250;
constexpr unsigned RETRY_CAP_MS = 8000;
// How often a pause looks at the cancel flag.
constexpr unsigned CANCEL_POLL_MS = 50;

using Clock = std::chrono::steady_clock;

enum class Outcome { done, final_failure, retryable };

std::string escaped(const std::string& text) {
  std::unique_ptr<char, void (*)(void*)> e(
      curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())), curl_free);
  return e ? std::string(e.get()) : std::string();
}

HTTP_Request pool_request(const std::string& pool, const char* device_uuid, bool is_restore) {
  HTTP_Request req(HTTP_GET, (POOLS_PATH + escaped(pool)).c_str(), false);
  std::string query;
  if (device_uuid != nullptr && *device_uuid != '\0')
    query = "device_uuid=" + escaped(device_uuid) + "&";
  query += is_restore ? "is_restore=true" : "is_restore=false";
  req.query_string(query.c_str());
  return req;
}

// The server's own explanation of a refusal, when it gave one.
std::string refusal_text(const HTTP_Response& resp, const json_spirit::Value& reply) {
  if (reply.type() == json_spirit::obj_type) {
    const auto& obj = reply.get_obj();
    const auto it = obj.find("error");
    if (it != obj.end() && it->second.type() == json_spirit::str_type) return it->second.get_str();
  }
  return resp.status() == 0 ? std::string("no reply") : "status " + std::to_string(resp.status());
}

bool is_error_reply(const json_spirit::Value& reply) {
  return reply.type() == json_spirit::obj_type && reply.get_obj().count("error") != 0;
}

struct Attempt {
  JSON_RESTful_Client& client;
  HTTP_Request request;
  HTTP_Response response;
  std::string error;
};

Outcome ask_once(Attempt& a, Pool_Info& info, bool require_device) {
  json_spirit::Value reply;
  a.response.clear();
  std::string why;  // our own line below says it, once
  if (!a.client.get_unlogged(a.request, a.response, &reply, why)) {
    a.error = refusal_text(a.response, reply);
    const bool transient = a.response.status() == 0 || a.response.status() >= 500;
    return transient ? Outcome::retryable : Outcome::final_failure;
  }
  if (is_error_reply(reply)) {
    a.error = refusal_text(a.response, reply);
    return Outcome::final_failure;
  }
  Pool_Info parsed;
  if (!pool_info_from_json(reply, parsed, a.error)) {
    a.error = "unusable reply: " + a.error;
    return Outcome::final_failure;
  }
  if (require_device && !parsed.device_exists) {
    a.error = "the device is not in the pool";
    return Outcome::final_failure;
  }
  info = std::move(parsed);
  return Outcome::done;
}

bool cancelled(const std::atomic<bool>* cancel) { return cancel != nullptr && cancel->load(); }

// Sleeps `ms`, waking early to stop when cancelled; false when cancelled.
bool pause(unsigned ms, const std::atomic<bool>* cancel) {
  const auto until = Clock::now() + std::chrono::milliseconds(ms);
  while (Clock::now() < until) {
    if (cancelled(cancel)) return false;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
    std::this_thread::sleep_for(std::min(left, std::chrono::milliseconds(CANCEL_POLL_MS)));
  }
  return !cancelled(cancel);
}

Outcome ask_with_retries(Attempt& a, Pool_Info& info, const std::atomic<bool>* cancel,
                         int retry_seconds, int max_attempts, bool require_device) {
  const auto deadline = Clock::now() + std::chrono::seconds(std::max(retry_seconds, 0));
  Exponential_Backoff_Iterator delay(RETRY_SLOT_MS, UINT_MAX, RETRY_CAP_MS, true);
  for (int attempt = 1;; ++attempt, ++delay) {
    const Outcome o = ask_once(a, info, require_device);
    if (o != Outcome::retryable) return o;
    if (max_attempts > 0 && attempt >= max_attempts) return o;
    if (Clock::now() + std::chrono::milliseconds(*delay) > deadline) return o;
    if (!pause(*delay, cancel)) {
      a.error = "cancelled after " + a.error;
      return Outcome::final_failure;
    }
  }
}

}  // namespace

bool get_pool_info(JSON_RESTful_Client& client, const std::string& pool, const char* device_uuid,
                   Pool_Info& info, bool is_restore, const std::atomic<bool>* cancel,
                   int retry_seconds, int max_attempts, bool log_failure, std::string* error,
                   HTTP_Response* response, bool require_device) {
  Attempt a{client, pool_request(pool, device_uuid, is_restore), HTTP_Response(), std::string()};
  const Outcome o = pool.empty()
                        ? (a.error = "no pool name", Outcome::final_failure)
                        : ask_with_retries(a, info, cancel, retry_seconds, max_attempts, require_device);
  if (response != nullptr) *response = a.response;
  if (o == Outcome::done) return true;
  if (error != nullptr) *error = a.error;
  if (log_failure)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get the description of pool '%C': %C\n"), pool.c_str(),
               a.error.c_str()));
  return false;
}
