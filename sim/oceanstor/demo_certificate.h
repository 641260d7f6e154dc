// A throw-away self-signed certificate for running the simulator over HTTPS by hand:
// CN=localhost, subjectAltName DNS:localhost and IP:127.0.0.1, valid for 30 days,
// written as PEM files into a fresh directory under /tmp that goes away with the object.
#pragma once

#include <string>

namespace au_sim {

class Demo_Certificate {
 public:
  Demo_Certificate();
  ~Demo_Certificate();
  Demo_Certificate(const Demo_Certificate&) = delete;
  Demo_Certificate& operator=(const Demo_Certificate&) = delete;

  bool ok() const { return ok_; }
  const std::string& cert_file() const { return cert_file_; }
  const std::string& key_file() const { return key_file_; }

 private:
  bool ok_ = false;
  std::string dir_;
  std::string cert_file_;
  std::string key_file_;
};

}  // namespace au_sim
