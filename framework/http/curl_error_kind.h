// How libcurl's failures are judged, once for every HTTP client of the library (the
// REST sessions and the S3 pools).
#pragma once

#include <curl/curl.h>

// Worth another attempt: the server could not be reached, or the connection broke or
// stalled. A name that does not resolve counts too, since resolvers fail for a moment
// as well. Refusals that would repeat (bad certificate, bad URL, reply too large) do not.
inline bool curl_error_is_transient(CURLcode rc) {
  switch (rc) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      return true;
    default:
      return false;
  }
}

// No connection was made, so the server provably never saw the request.
inline bool curl_error_is_unsent(CURLcode rc) {
  return rc == CURLE_COULDNT_CONNECT || rc == CURLE_COULDNT_RESOLVE_HOST;
}
