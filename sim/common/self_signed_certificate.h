// A key and a certificate for CN=localhost with subjectAltName DNS:localhost and
// IP:127.0.0.1, signed by itself (CA:TRUE, so clients can take it as their CA file),
// written as PEM files in a fresh directory under /tmp that goes away with the object.
#pragma once

#include <string>

namespace au_sim {

class Self_Signed_Certificate {
 public:
  explicit Self_Signed_Certificate(int valid_days = 1);
  ~Self_Signed_Certificate();
  Self_Signed_Certificate(const Self_Signed_Certificate&) = delete;
  Self_Signed_Certificate& operator=(const Self_Signed_Certificate&) = delete;

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
