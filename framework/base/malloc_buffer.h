// Bytes from malloc with their size, freed on scope exit: for C interfaces that
// fill a caller's buffer (librados lists, ioctl replies) or hand back malloc'd memory.
//
// A size of 0 gives a null pointer, and so does a failed allocation (size() is then
// 0): callers check p_ before use. Movable, not copyable.
#pragma once

#include <cstddef>
#include <cstdlib>

struct malloc_buffer {
  explicit malloc_buffer(size_t size = 0);
  ~malloc_buffer() { std::free(p_); }
  malloc_buffer(malloc_buffer&& other) noexcept;
  malloc_buffer& operator=(malloc_buffer&& other) noexcept;
  malloc_buffer(const malloc_buffer&) = delete;
  malloc_buffer& operator=(const malloc_buffer&) = delete;

  // Grows or shrinks keeping the leading bytes (realloc). On failure the old
  // bytes stay as they were and false is returned. resize(0) frees them.
  bool resize(size_t size);
  // Takes ownership of memory from malloc (freeing what was held before).
  void reset(void* p, size_t size);
  // Hands the memory to the caller, who must free() it.
  void* release();

  size_t size() const { return size_; }
  char* data() const { return static_cast<char*>(p_); }
  template <class T>
  T* as() const { return static_cast<T*>(p_); }

  void* p_ = nullptr;  // public so that checks can name it: AU_IS_NULL(buf.p_)
  size_t size_ = 0;
};
