#include "utils/agent/ceph/rbd_aio_window.h"

#include <rbd/librbd.h>

#include <cerrno>
#include <cstring>

#include "utils/agent/ceph/librbd_wrapper.h"

namespace ceph {

namespace {

rbd_image_t image_of(const Ceph_Context& ctx) { return static_cast<rbd_image_t>(*ctx.img_ctx_); }

}  // namespace

bool rbd_aio_window_available() {
  return rbd_aio_create_completion != nullptr && rbd_aio_wait_for_complete != nullptr &&
         rbd_aio_get_return_value != nullptr && rbd_aio_release != nullptr &&
         rbd_aio_read != nullptr && rbd_aio_write != nullptr;
}

Rbd_Aio_Window::Rbd_Aio_Window(const Ceph_Context& image, size_t max_requests,
                               uint64_t max_bytes, bool writes_copied)
    : image_(image),
      max_requests_(max_requests == 0 ? 1 : max_requests),
      max_bytes_(max_bytes),
      writes_copied_(writes_copied) {}

namespace {
uint64_t carried_bytes(const Rbd_Aio_Window::Request& r) {
  return r.kind == Rbd_Aio_Window::Kind::zeroes ? 0 : r.length;
}
}  // namespace

Rbd_Aio_Window::~Rbd_Aio_Window() {
  while (!empty()) complete_oldest();
}

Rbd_Aio_Window::Request& Rbd_Aio_Window::next_slot(Kind kind, uint64_t offset, uint64_t length) {
  std::unique_ptr<Request> r;
  if (idle_.empty()) {
    r = std::make_unique<Request>();
  } else {
    r = std::move(idle_.back());
    idle_.pop_back();
  }
  r->kind = kind;
  r->offset = offset;
  r->length = length;
  r->result = 0;
  r->completion = nullptr;
  bytes_in_flight_ += carried_bytes(*r);
  in_flight_.push_back(std::move(r));
  return *in_flight_.back();
}

// Takes back the slot just pushed when librbd refused it.
int Rbd_Aio_Window::queue(Request& r, int submitted) {
  if (submitted >= 0) return 0;
  // A completion librbd never made has nothing to release.
  if (r.completion != nullptr) rbd_aio_release(static_cast<rbd_completion_t>(r.completion));
  r.completion = nullptr;
  bytes_in_flight_ -= carried_bytes(r);
  idle_.push_back(std::move(in_flight_.back()));
  in_flight_.pop_back();
  return submitted;
}

int Rbd_Aio_Window::submit_read(uint64_t offset, size_t length, int op_flags) {
  if (!image_.img_ctx_ || full(length)) return -EINVAL;
  Request& r = next_slot(Kind::read, offset, length);
  char* into = r.buffer.room(length);
  const int c = rbd_aio_create_completion(nullptr, nullptr, &r.completion);
  if (c < 0) return queue(r, c);
  const auto done = static_cast<rbd_completion_t>(r.completion);
  return queue(r, op_flags != 0 && rbd_aio_read2 != nullptr
                      ? rbd_aio_read2(image_of(image_), offset, length, into, done, op_flags)
                      : rbd_aio_read(image_of(image_), offset, length, into, done));
}

int Rbd_Aio_Window::submit_write(uint64_t offset, const void* data, size_t length,
                                 int op_flags) {
  if (!image_.img_ctx_ || full(length)) return -EINVAL;
  if (op_flags != 0 && rbd_aio_write2 == nullptr) return -EOPNOTSUPP;
  Request& r = next_slot(Kind::write, offset, length);
  const char* from = static_cast<const char*>(data);
  if (!writes_copied_) from = static_cast<char*>(std::memcpy(r.buffer.room(length), data, length));
  const int c = rbd_aio_create_completion(nullptr, nullptr, &r.completion);
  if (c < 0) return queue(r, c);
  const auto done = static_cast<rbd_completion_t>(r.completion);
  return queue(r, op_flags != 0
                      ? rbd_aio_write2(image_of(image_), offset, length, from, done, op_flags)
                      : rbd_aio_write(image_of(image_), offset, length, from, done));
}

int Rbd_Aio_Window::submit_zeroes(uint64_t offset, uint64_t length, int op_flags) {
  if (!image_.img_ctx_ || full() || length > MAX_ZERO_REQUEST) return -EINVAL;
  // Zeroing without rbd_aio_write_zeroes would be a discard, which librbd may skip for
  // partial objects; the caller zeroes synchronously instead.
  if (rbd_aio_write_zeroes == nullptr) return -EOPNOTSUPP;
  Request& r = next_slot(Kind::zeroes, offset, length);
  const int c = rbd_aio_create_completion(nullptr, nullptr, &r.completion);
  if (c < 0) return queue(r, c);
  return queue(r, rbd_aio_write_zeroes(image_of(image_), offset, length,
                                       static_cast<rbd_completion_t>(r.completion), 0,
                                       op_flags));
}

const Rbd_Aio_Window::Request* Rbd_Aio_Window::complete_oldest() {
  recycle();
  if (in_flight_.empty()) return nullptr;
  done_ = std::move(in_flight_.front());
  in_flight_.pop_front();
  bytes_in_flight_ -= carried_bytes(*done_);
  const auto c = static_cast<rbd_completion_t>(done_->completion);
  rbd_aio_wait_for_complete(c);
  done_->result = rbd_aio_get_return_value(c);
  rbd_aio_release(c);
  done_->completion = nullptr;
  // librbd answers a whole write or zeroing with 0; report the bytes it covered.
  if (done_->kind != Kind::read && done_->result == 0)
    done_->result = static_cast<int64_t>(done_->length);
  return done_.get();
}

void Rbd_Aio_Window::recycle() {
  if (done_) idle_.push_back(std::move(done_));
}

}  // namespace ceph
