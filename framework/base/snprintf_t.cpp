#include "framework/base/snprintf_t.h"

#include <ace/Log_Msg.h>

#include <cstdio>

namespace au_base {

const char* format_growing(char* inline_buf, size_t inline_size, std::unique_ptr<char[]>& heap,
                           size_t& length, const char* fmt, va_list args) {
  length = 0;
  inline_buf[0] = '\0';
  if (fmt == nullptr) return inline_buf;
  va_list again;
  va_copy(again, args);
  const int needed = std::vsnprintf(inline_buf, inline_size, fmt, args);
  const char* text = inline_buf;
  if (needed < 0) {
    inline_buf[0] = '\0';
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to format text '%C': %m\n"), fmt));
  } else if (static_cast<size_t>(needed) < inline_size) {
    length = static_cast<size_t>(needed);
  } else {
    heap.reset(new char[static_cast<size_t>(needed) + 1]);
    std::vsnprintf(heap.get(), static_cast<size_t>(needed) + 1, fmt, again);
    length = static_cast<size_t>(needed);
    text = heap.get();
  }
  va_end(again);
  return text;
}

}  // namespace au_base
