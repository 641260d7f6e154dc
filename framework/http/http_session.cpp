#include "framework/http/http_session.h"

#include "framework/http/http_redaction.h"
#include "framework/log/trace.h"

namespace {

// Session fields, then `extra` over them.
HTTP_Headers merge_headers(const HTTP_Headers& base, const HTTP_Headers& extra) {
  HTTP_Headers merged;
  for (const auto& field : base)
    if (extra.get(field.first.c_str()) == nullptr) merged.put(field.first, field.second, false);
  for (const auto& field : extra) merged.put(field.first, field.second, false);
  return merged;
}

}  // namespace

HTTP_Session::HTTP_Session(const HTTP_Connection_Settings& settings) : transport_(settings) {}

void HTTP_Session::intrusive_add_ref(HTTP_Session* s) {
  if (s != nullptr) s->refs_.fetch_add(1, std::memory_order_relaxed);
}

void HTTP_Session::intrusive_remove_ref(HTTP_Session* s) {
  if (s != nullptr && s->refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete s;
}

HTTP_Connection_Settings HTTP_Session::settings() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return transport_.settings();
}

void HTTP_Session::settings(const HTTP_Connection_Settings& settings) {
  std::lock_guard<std::mutex> lock(mutex_);
  transport_.settings(settings);
}

void HTTP_Session::disconnect() {
  std::lock_guard<std::mutex> lock(mutex_);
  transport_.disconnect();
}

long HTTP_Session::last_new_connections() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return transport_.last_new_connections();
}

std::string HTTP_Session::describe(const HTTP_Request& request) const {
  return std::string(http_method_string(request.method())) + " " + settings().base_url() +
         request.target();
}

bool HTTP_Session::send(const HTTP_Request& request, const HTTP_Headers& extra,
                        const HTTP_Request_Body& body, HTTP_Response& response,
                        HTTP_Transport_Error& error) {
  const HTTP_Headers merged = merge_headers(headers_, extra);
  AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t called HTTP_Session::send(%C), headers: %C\n"),
                  describe(request).c_str(),
                  http_headers_for_log(merge_headers(merged, request.headers())).c_str()));
  std::lock_guard<std::mutex> lock(mutex_);
  return transport_.perform(request, merged, body, response, error);
}
