// A negative librados/librbd result as the failure lines print it, "code %d, msg %s":
// the positive code and its text. The one errno-to-text helper of the Ceph classes.
#pragma once

#include "framework/base/posix_error.h"

namespace ceph {

class Ceph_Error {
 public:
  explicit Ceph_Error(int negative_code) : code(-negative_code), text_(-negative_code) {}

  const int code;
  const char* text() const { return text_.c_str(); }

 private:
  POSIX_Error text_;
};

}  // namespace ceph
