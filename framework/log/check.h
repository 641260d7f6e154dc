// Argument and invariant checks in the library's one log frame:
//   "Unexpected error in %N:%l, <what>:\n%?\n"  at LM_EMERGENCY.
//
// Every macro evaluates to true when the check FAILS (after logging it), so a call
// site reads as the condition it refuses:
//
//   if (AU_IS_NULL_OR_EMPTY(uri)) return false;          // uri is NULL or ""
//   if (AU_IS_EMPTY(pool_name)) return false;            // pool_name is empty
//   if (AU_IS_NULL(ctx_.img_ctx_)) return -EINVAL;       // ctx_.img_ctx_ is NULL
//   if (AU_IS_FALSE(image_)) return false;               // image_ is false
//   if (AU_FAILS_IF(len, !=, 0)) return -EINVAL;         // len(7) != 0(0)
//
// The invariant form prints each operand's value in parentheses right after its text.
#pragma once

#include <sstream>
#include <string>
#include <type_traits>

#include "framework/base/api.h"

namespace au_log {

// Logs the check frame for `what` with the caller's file and line; returns true.
AGENTUTIL_API bool check_failed(const char* file, int line, const char* what);

template <class T>
std::string format_operand(const T& v) {
  std::ostringstream os;
  if constexpr (std::is_same_v<T, bool>) {
    os << (v ? "true" : "false");
  } else if constexpr (std::is_integral_v<T> && sizeof(T) == 1) {
    os << static_cast<int>(v);
  } else {
    os << v;
  }
  return "(" + os.str() + ")";
}

template <class L, class R>
bool invariant_failed(const char* file, int line, const char* lhs, const char* op,
                      const char* rhs, const L& l, const R& r) {
  const std::string what = std::string(lhs) + format_operand(l) + " " + op + " " + rhs +
                           format_operand(r);
  return check_failed(file, line, what.c_str());
}

inline bool is_null_or_empty(const char* s) { return s == nullptr || *s == '\0'; }
template <class S>
bool is_null_or_empty(const S& s) { return s.empty(); }

inline bool is_empty(const char* s) { return s == nullptr || *s == '\0'; }
template <class T>
auto is_empty(const T& v) -> decltype(v.empty()) { return v.empty(); }

}  // namespace au_log

#define AU_CHECK_FRAME_FAILED(what) ::au_log::check_failed(__FILE__, __LINE__, what)

#define AU_IS_NULL(p) (((p) == nullptr) ? AU_CHECK_FRAME_FAILED(#p " is NULL") : false)
#define AU_IS_NULL_OR_EMPTY(s) \
  (::au_log::is_null_or_empty(s) ? AU_CHECK_FRAME_FAILED(#s " is NULL or \"\"") : false)
#define AU_IS_EMPTY(v) (::au_log::is_empty(v) ? AU_CHECK_FRAME_FAILED(#v " is empty") : false)
#define AU_IS_FALSE(b) (!static_cast<bool>(b) ? AU_CHECK_FRAME_FAILED(#b " is false") : false)
#define AU_FAILS_IF(lhs, op, rhs)                                                         \
  (((lhs)op(rhs)) ? ::au_log::invariant_failed(__FILE__, __LINE__, #lhs, #op, #rhs, (lhs), \
                                               (rhs))                                    \
                  : false)
