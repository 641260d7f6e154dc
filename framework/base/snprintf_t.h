// printf-style formatting into an inline buffer of N bytes that moves to the heap
// when the text is longer: the text is never truncated, and short texts (paths,
// query strings) cost no allocation.
//
//   snprintf_t<128> path("/d2/r/v2/job/action?job_uuid=%s", id);
//   client.post(path.c_str(), ...);
#pragma once

#include <cstdarg>
#include <cstddef>
#include <memory>
#include <string>

namespace au_base {

// vsnprintf into `inline_buf` (capacity `inline_size`) or, when that is too small,
// into a heap buffer stored in `heap`. Returns the text, or "" after an encoding
// error (logged once at LM_ERROR); `length` receives its length.
const char* format_growing(char* inline_buf, size_t inline_size, std::unique_ptr<char[]>& heap,
                           size_t& length, const char* fmt, va_list args);

}  // namespace au_base

template <size_t N>
class snprintf_t {
  static_assert(N > 0, "snprintf_t needs room for the terminating NUL");

 public:
  explicit snprintf_t(const char* fmt, ...) __attribute__((format(printf, 2, 3))) {
    va_list args;
    va_start(args, fmt);
    text_ = au_base::format_growing(buf_, N, heap_, length_, fmt, args);
    va_end(args);
  }
  // The text points into this object; copying would have to re-aim it.
  snprintf_t(const snprintf_t&) = delete;
  snprintf_t& operator=(const snprintf_t&) = delete;

  const char* c_str() const { return text_; }
  operator const char*() const { return text_; }  // NOLINT: drop-in for a char buffer
  size_t length() const { return length_; }
  size_t size() const { return length_; }
  std::string str() const { return std::string(text_, length_); }
  // Whether the text had to move to the heap.
  bool on_heap() const { return heap_ != nullptr; }

 private:
  char buf_[N];
  std::unique_ptr<char[]> heap_;
  const char* text_ = buf_;
  size_t length_ = 0;
};
