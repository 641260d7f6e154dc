#include "utils/agent/ceph/rbd_restore_target.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "framework/base/posix_error.h"
#include "utils/agent/ceph/backup_extents.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_image_writer.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/rbd_aio_window.h"
#include "utils/agent/ceph/rbd_handle.h"

namespace ceph {

namespace {

// Larger writes are split: librbd's synchronous calls answer with an int byte count.
constexpr uint64_t MAX_WRITE = 64u << 20;

rbd_image_t image_of(const Ceph_Image& image) {
  return static_cast<rbd_image_t>(*image.context().img_ctx_);
}

}  // namespace

Rbd_Restore_Target::Rbd_Restore_Target() = default;

Rbd_Restore_Target::~Rbd_Restore_Target() { window_.reset(); }

bool Rbd_Restore_Target::open(Ceph_Client& client, const std::string& image_uri, bool is_new) {
  window_.reset();
  clean_.clear();
  broken_ = false;
  last_error_.clear();
  if (!Ceph_Image_Writer::open_for_restore(client, image_uri, image_)) return false;
  uint64_t bytes = 0;
  if (!size(bytes)) {
    ACE_ERROR((LM_ERROR, "Failed to open Ceph image '%s' for a restore: %s\n",
               image_uri.c_str(), last_error_.c_str()));
    image_.close_image();
    return false;
  }
  if (is_new) {
    if (bytes > 0) clean_[0] = bytes;
  } else if (object_map_usable(image_.context())) {
    // Where no object holds data (the parent's included), zeroing can be left out.
    Blocks allocated;
    if (rbd_handle::allocated_extents(image_.context(), allocated)) {
      uint64_t at = 0;
      for (const Block& b : allocated) {
        if (b.offset > at) clean_[at] = std::min(b.offset, bytes);
        at = std::max(at, b.end());
      }
      if (at < bytes) clean_[at] = bytes;
    }
  }
  // librados' no-cache advice, where librbd takes flags on the path this target uses.
  const bool windowed = rbd_aio_window_available();
  write_flag_ = (windowed ? rbd_aio_write2 != nullptr : rbd_write2 != nullptr)
                    ? Ceph_Image_Writer::DEFAULT_WRITE_FLAG
                    : 0;
  if (windowed)
    window_ = std::make_unique<Rbd_Aio_Window>(image_.context(), Ceph_Image_Writer::WINDOW,
                                               Ceph_Image_Writer::MAX_BYTES_IN_FLIGHT,
                                               rbd_handle::writes_are_copied(image_.context()));
  return true;
}

std::string Rbd_Restore_Target::name() const { return image_.uri(); }

bool Rbd_Restore_Target::size(uint64_t& bytes) {
  if (!image_) return fail("Ceph image '" + name() + "' is not open");
  const int r = rbd_get_size(image_of(image_), &bytes);
  if (r < 0) return failed("get the size of " + quoted(), r);
  size_ = bytes;
  return true;
}

bool Rbd_Restore_Target::resize(uint64_t bytes) {
  if (!image_) return fail("Ceph image '" + name() + "' is not open");
  if (!make_room(~uint64_t{0})) return false;  // nothing in flight across a resize
  uint64_t now = 0;
  if (!size(now)) return false;
  if (bytes == now) return true;
  const int r = rbd_resize(image_of(image_), bytes);
  if (r < 0) return failed("resize " + quoted() + " to " + std::to_string(bytes) + " bytes", r);
  if (bytes < now) {
    clean_.erase(clean_.lower_bound(bytes), clean_.end());
    if (!clean_.empty()) {
      auto last = std::prev(clean_.end());
      last->second = std::min(last->second, bytes);
    }
  } else {
    // The grown part reads as zeros and holds no object of this image.
    auto last = clean_.empty() ? clean_.end() : std::prev(clean_.end());
    if (last != clean_.end() && last->second == now)
      last->second = bytes;
    else
      clean_[now] = bytes;
  }
  size_ = bytes;
  return true;
}

bool Rbd_Restore_Target::check_range(uint64_t offset, uint64_t length, const char* what) {
  if (!image_) return fail("Ceph image '" + name() + "' is not open");
  if (broken_) return false;  // last_error() holds the first failure
  if (offset > size_ || length > size_ - offset) {
    return fail(std::string("Refused to ") + what + " " + at(offset, length) +
                ": past its size " + std::to_string(size_));
  }
  return true;
}

bool Rbd_Restore_Target::write(uint64_t offset, const void* data, size_t length) {
  if (!check_range(offset, length, "write")) return false;
  forget_clean(offset, offset + length);
  const char* bytes = static_cast<const char*>(data);
  for (uint64_t done = 0; done < length;) {
    const uint64_t n = std::min<uint64_t>(MAX_WRITE, length - done);
    int64_t r;
    if (window_) {
      if (!make_room(n)) return false;
      r = window_->submit_write(offset + done, bytes + done, n, write_flag_);
    } else {
      r = rbd_handle::write(image_.context(), offset + done, n, bytes + done, write_flag_);
      if (r >= 0 && r < static_cast<int64_t>(n)) r = -EIO;
    }
    if (r < 0) return failed("write " + at(offset + done, n), r);
    done += n;
  }
  return true;
}

bool Rbd_Restore_Target::zero(uint64_t offset, uint64_t length) {
  if (!check_range(offset, length, "zero")) return false;
  // Only the parts outside the clean ranges.
  const uint64_t end = offset + length;
  uint64_t at = offset;
  auto c = clean_.upper_bound(offset);
  if (c != clean_.begin()) --c;
  for (; c != clean_.end() && c->first < end && at < end; ++c) {
    if (c->second <= at) continue;
    if (c->first > at && !zero_part(at, c->first - at)) return false;
    at = std::max(at, c->second);
  }
  return at >= end || zero_part(at, end - at);
}

bool Rbd_Restore_Target::zero_part(uint64_t offset, uint64_t length) {
  for (uint64_t done = 0; done < length;) {
    const uint64_t n = std::min(Rbd_Aio_Window::MAX_ZERO_REQUEST, length - done);
    int64_t r = -EOPNOTSUPP;
    if (window_ && rbd_aio_write_zeroes != nullptr) {
      if (!make_room(0)) return false;
      r = window_->submit_zeroes(offset + done, n, write_flag_);
    } else {
      r = rbd_handle::zero_range(image_.context(), offset + done, n, write_flag_);
    }
    if (r < 0) return failed("zero " + at(offset + done, n), r);
    done += n;
  }
  return true;
}

bool Rbd_Restore_Target::flush() {
  if (!image_) return fail("Ceph image '" + name() + "' is not open");
  make_room(~uint64_t{0});
  if (broken_) return false;
  const int r = rbd_flush(image_of(image_));
  if (r < 0) return failed("flush " + quoted(), r);
  return true;
}

// Lands the oldest requests until one carrying `next_bytes` fits (all of them for ~0).
bool Rbd_Restore_Target::make_room(uint64_t next_bytes) {
  if (!window_) return !broken_;
  const bool all = next_bytes == ~uint64_t{0};
  while (!window_->empty() && (all || window_->full(next_bytes))) land_oldest();
  return !broken_;
}

bool Rbd_Restore_Target::land_oldest() {
  const Rbd_Aio_Window::Request* r = window_->complete_oldest();
  if (r == nullptr || r->result >= static_cast<int64_t>(r->length)) return true;
  const char* what = r->kind == Rbd_Aio_Window::Kind::zeroes ? "zero " : "write ";
  return failed(what + at(r->offset, r->length), r->result < 0 ? r->result : -EIO);
}

bool Rbd_Restore_Target::failed(const std::string& action, int64_t r) {
  if (broken_) return false;  // the first failure is the one to report
  broken_ = true;
  const int code = static_cast<int>(-r);
  return fail("Failed to " + action + ", errno=" + std::to_string(code) + ", " +
              POSIX_Error(code).c_str());
}

std::string Rbd_Restore_Target::quoted() const { return "Ceph image '" + name() + "'"; }

std::string Rbd_Restore_Target::at(uint64_t offset, uint64_t length) const {
  return std::to_string(length) + " bytes at offset " + std::to_string(offset) + " of " +
         quoted();
}

void Rbd_Restore_Target::forget_clean(uint64_t offset, uint64_t end) {
  auto c = clean_.upper_bound(offset);
  if (c != clean_.begin() && std::prev(c)->second > offset) --c;
  while (c != clean_.end() && c->first < end) {
    const uint64_t begin = c->first, finish = c->second;
    c = clean_.erase(c);
    if (begin < offset) clean_[begin] = offset;
    if (finish > end) {
      clean_[end] = finish;
      break;
    }
  }
}

}  // namespace ceph
