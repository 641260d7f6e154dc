#include "framework/http/curl_global.h"

#include <ace/Log_Msg.h>
#include <curl/curl.h>

#include <mutex>

void ensure_curl_global_init() {
  static std::once_flag once;
  std::call_once(once, [] {
    // Never cleaned up: other threads may still hold handles at exit.
    const CURLcode rc = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (rc != CURLE_OK)
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to initialise libcurl: %C.\n"),
                 curl_easy_strerror(rc)));
  });
}
