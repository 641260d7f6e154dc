#include "framework/http/http_method.h"

namespace {

const char* const METHOD_NAMES[] = {
    "UNKNOWN", "CONNECT", "DELETE", "GET",  "HEAD", "OPTIONS",
    "PATCH",   "TRACE",   nullptr,  "POST", "PUT",
};
constexpr int METHOD_COUNT = sizeof(METHOD_NAMES) / sizeof(METHOD_NAMES[0]);

}  // namespace

bool http_method_is_known(int method) {
  return method > HTTP_UNKNOWN && method < METHOD_COUNT && METHOD_NAMES[method] != nullptr;
}

const char* http_method_string(int method) {
  return http_method_is_known(method) ? METHOD_NAMES[method] : METHOD_NAMES[HTTP_UNKNOWN];
}
