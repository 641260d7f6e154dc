// What requests and responses have in common: their header fields; and what every
// response has: a status code.
#pragma once

#include "framework/base/api.h"
#include "framework/http/http_headers.h"

class AGENTUTIL_API CGI_Base {
 public:
  virtual ~CGI_Base() = default;

  HTTP_Headers& headers() { return headers_; }
  const HTTP_Headers& headers() const { return headers_; }

 private:
  HTTP_Headers headers_;
};

class AGENTUTIL_API CGI_Response : public CGI_Base {
 public:
  // 0 until a reply has been received.
  int status() const { return status_; }
  void status(int code) { status_ = code; }
  bool is_success() const { return status_ >= 200 && status_ < 300; }

 private:
  int status_ = 0;
};
