// A received reply: status and header fields (CGI_Response) and the body bytes.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/http/cgi_base.h"

class AGENTUTIL_API HTTP_Response : public CGI_Response {
 public:
  std::string& body() { return body_; }
  const std::string& body() const { return body_; }

  // Back to the state before any reply, so one object can serve several exchanges.
  void clear() {
    status(0);
    headers().clear();
    body_.clear();
  }

 private:
  std::string body_;
};
