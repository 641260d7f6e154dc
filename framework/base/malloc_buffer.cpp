#include "framework/base/malloc_buffer.h"

#include <utility>

malloc_buffer::malloc_buffer(size_t size) : p_(size ? std::malloc(size) : nullptr) {
  size_ = p_ ? size : 0;
}

malloc_buffer::malloc_buffer(malloc_buffer&& other) noexcept
    : p_(std::exchange(other.p_, nullptr)), size_(std::exchange(other.size_, 0)) {}

malloc_buffer& malloc_buffer::operator=(malloc_buffer&& other) noexcept {
  if (this != &other) {
    std::free(p_);
    p_ = std::exchange(other.p_, nullptr);
    size_ = std::exchange(other.size_, 0);
  }
  return *this;
}

bool malloc_buffer::resize(size_t size) {
  if (size == 0) {
    reset(nullptr, 0);
    return true;
  }
  void* grown = std::realloc(p_, size);
  if (grown == nullptr) return false;
  p_ = grown;
  size_ = size;
  return true;
}

void malloc_buffer::reset(void* p, size_t size) {
  std::free(p_);
  p_ = p;
  size_ = p ? size : 0;
}

void* malloc_buffer::release() {
  size_ = 0;
  return std::exchange(p_, nullptr);
}
