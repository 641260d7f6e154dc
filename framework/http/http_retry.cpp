#include "framework/http/http_retry.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "framework/http/http_method.h"
#include "framework/log/trace.h"

namespace {

using Clock = std::chrono::steady_clock;

bool is_idempotent(int method) {
  switch (method) {
    case HTTP_GET:
    case HTTP_HEAD:
    case HTTP_PUT:
    case HTTP_DELETE:
    case HTTP_OPTIONS:
    case HTTP_TRACE:
      return true;
    default:
      return false;
  }
}

bool worth_retrying(const HTTP_Request& request, bool replied, const HTTP_Response& response,
                    const HTTP_Transport_Error& error) {
  if (!is_idempotent(request.method())) return !replied && error.not_sent;
  return replied ? response.status() >= 500 : error.retryable;
}

int bounded_retries(int retries) {
  return std::min(std::max(retries, 0), HTTP_Retry_Policy::MAX_RETRIES);
}

}  // namespace

bool http_send_with_retries(HTTP_Session& session, const HTTP_Request& request,
                            const HTTP_Headers& extra, const HTTP_Request_Body& body,
                            HTTP_Response& response, const HTTP_Retry_Policy& policy,
                            std::string& error) {
  const int retries = bounded_retries(policy.retries);
  const Clock::time_point start = Clock::now();
  std::chrono::milliseconds wait(std::min(policy.interval_ms, HTTP_Retry_Policy::MAX_INTERVAL_MS));
  for (int attempt = 0;; ++attempt) {
    HTTP_Transport_Error failure;
    const bool replied = session.send(request, extra, body, response, failure);
    error = replied ? std::string() : failure.message;
    if (attempt >= retries || !worth_retrying(request, replied, response, failure)) return replied;
    if (policy.timeout > 0 && Clock::now() + wait - start > std::chrono::seconds(policy.timeout))
      return replied;
    // A streamed body that cannot start over cannot be sent again.
    if (body.source() != nullptr && !body.source()->rewind()) return replied;
    AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t called http_send_with_retries, retry %d of %C\n"),
                    attempt + 1, session.describe(request).c_str()));
    std::this_thread::sleep_for(wait);
    wait = std::min(wait * 2, std::chrono::milliseconds(HTTP_Retry_Policy::MAX_INTERVAL_MS));
  }
}
