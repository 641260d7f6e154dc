// HTTP request methods as the agent code passes them: plain ints, so the numbers are
// part of the interface and must never change.
#pragma once

enum HTTP_Method {
  HTTP_UNKNOWN = 0,
  HTTP_CONNECT = 1,
  HTTP_DELETE = 2,
  HTTP_GET = 3,
  HTTP_HEAD = 4,
  HTTP_OPTIONS = 5,
  HTTP_PATCH = 6,
  HTTP_TRACE = 7,
  // 8 is unassigned.
  HTTP_POST = 9,
  HTTP_PUT = 10,
};

// The method's name as sent on the wire ("GET", ...); "UNKNOWN" for any other code,
// never null, so it can go straight into a log line.
const char* http_method_string(int method);

// True for the codes above other than HTTP_UNKNOWN.
bool http_method_is_known(int method);
