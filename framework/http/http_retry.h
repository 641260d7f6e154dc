// Sending with bounded retries. Only what may go better next time is retried: a
// server that could not be reached, a broken connection, a 5xx reply. A 4xx reply,
// a refused certificate or an oversized reply is final at once.
//
// Only idempotent requests (GET, HEAD, PUT, DELETE, OPTIONS, TRACE) are sent again after
// they may have reached the server. Any other request (POST, PATCH: an attach, a forwarded
// mount, a login) is retried only when no connection was made at all, so that it is never
// carried out twice; a 5xx reply or a broken connection is its final outcome.
#pragma once

#include <string>

#include "framework/http/http_session.h"

struct HTTP_Retry_Policy {
  static constexpr int MAX_RETRIES = 100;
  static constexpr unsigned MAX_INTERVAL_MS = 30000;

  // Attempts after the first; negative counts as 0, more than MAX_RETRIES as that.
  int retries = 0;
  // Seconds all attempts may take together; no retry starts after it. <= 0: none.
  int timeout = -1;
  // Wait before the first retry; doubles after each one, up to MAX_INTERVAL_MS.
  unsigned interval_ms = 1000;
};

// Sends `request` on `session`. True when a reply arrived (the last one: after the
// retries it may still be a 5xx); false when none did, with `error` saying why.
// Logs nothing: the caller writes the one line about the outcome.
bool http_send_with_retries(HTTP_Session& session, const HTTP_Request& request,
                            const HTTP_Headers& extra, const HTTP_Request_Body& body,
                            HTTP_Response& response, const HTTP_Retry_Policy& policy,
                            std::string& error);
