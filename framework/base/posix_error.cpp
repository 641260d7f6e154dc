#include "framework/base/posix_error.h"

#include <cerrno>
#include <cstring>

namespace {

// strerror_r comes in two flavours; overloads pick the result of whichever the
// C library declares. XSI returns 0 and fills the buffer; GNU returns the text.
[[maybe_unused]] const char* strerror_result(int rc, const char* buf) {
  return rc == 0 ? buf : nullptr;
}
[[maybe_unused]] const char* strerror_result(const char* text, const char*) { return text; }

std::string error_text(int error) {
  char buf[256] = {0};
  const char* text = strerror_result(strerror_r(error, buf, sizeof buf), buf);
  if (text == nullptr || *text == '\0') return "Unknown error " + std::to_string(error);
  return text;
}

}  // namespace

POSIX_Error::POSIX_Error() : POSIX_Error(errno) {}

POSIX_Error::POSIX_Error(int error, int format) : error_(error), text_(error_text(error)) {
  if (format == WITH_CODE) text_ += " (errno " + std::to_string(error) + ")";
}
