// A buffer reused from one record or request to the next: room(n) gives at least n bytes
// whose contents are left as they are. std::string and std::vector zero-fill what a
// resize grows by, which costs a memset per 4 MiB record on the data paths.
#pragma once

#include <cstddef>
#include <memory>

class Scratch_Bytes {
 public:
  char* room(size_t n) {
    if (n > capacity_) {
      data_.reset(new char[n]);  // nothing kept: callers fill what they ask for
      capacity_ = n;
    }
    return data_.get();
  }
  const char* data() const { return data_.get(); }

 private:
  std::unique_ptr<char[]> data_;
  size_t capacity_ = 0;
};
