// Requests are logged for debugging, but credentials never reach a log line: the
// value of any field below is replaced by "<redacted>".
#pragma once

#include <string>

#include "framework/http/http_headers.h"

// Authorization, Proxy-Authorization, Cookie, Set-Cookie, iBaseToken, X-Auth-Token and
// the access-key field of http_header_ids.h, in any letter case.
bool http_header_is_secret(const char* name);

// "Name: value, Name: <redacted>, ..." for a log line.
std::string http_headers_for_log(const HTTP_Headers& headers);

// A cookie header ("a=1; b=2; path=/") with every value replaced: "a=<redacted>;
// b=<redacted>; path=<redacted>", so a log line still shows which cookies came.
std::string http_cookie_for_log(const std::string& cookie);
