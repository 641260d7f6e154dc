// The text of an errno value, taken with the thread-safe strerror_r so that
// concurrent threads never share one static message buffer.
#pragma once

#include <string>

#include "framework/base/api.h"

class AGENTUTIL_API POSIX_Error {
 public:
  // Formats accepted by the second constructor argument.
  enum Format {
    TEXT_ONLY = 0,  // "No such file or directory"
    WITH_CODE = 1   // "No such file or directory (errno 2)"
  };

  // The current errno of the calling thread.
  POSIX_Error();
  explicit POSIX_Error(int error, int format = TEXT_ONLY);

  int value() const { return error_; }
  const char* c_str() const { return text_.c_str(); }
  const std::string& str() const { return text_; }

 private:
  int error_;
  std::string text_;
};
