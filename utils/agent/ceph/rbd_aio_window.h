// A bounded window of asynchronous reads or writes on one open image, driven by one calling
// thread and no thread of ours: submit() hands a request to librbd and returns at once;
// complete_oldest() waits for the oldest request and hands it back, so completions are
// taken in submission order whatever order the OSDs answer in.
//
//   Rbd_Aio_Window w(image.context(), 16, 64 << 20);
//   while (more && !w.full(len)) w.submit_read(off, len, 0) ...
//   const Rbd_Aio_Window::Request* r = w.complete_oldest();   // r->result, r->data
//
// Each read fills a buffer of the window's, valid until the next call once completed.
// A write copies the caller's bytes into one, so that the caller may reuse them at once,
// unless librbd is known to copy them itself (`writes_copied`: rbd_handle::
// writes_are_copied), which spares a copy of every byte written.
// The window is bounded both in requests and in the bytes they carry (reads and writes;
// a zeroing carries none), so that small blocks can keep more requests in flight without
// large ones holding more memory. A single request larger than the byte bound still goes
// alone into an empty window.
// The destructor waits for everything in flight: librbd writes into those buffers.
// Only for use when rbd_aio_window_available(); the data paths fall back to the synchronous
// calls otherwise. Not thread-safe: one thread per window.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "framework/base/scratch_bytes.h"
#include "utils/agent/ceph/ceph_context.h"

namespace ceph {

// True when the loaded librbd has every asynchronous call a window makes.
bool rbd_aio_window_available();

class Rbd_Aio_Window {
 public:
  enum class Kind { read, write, zeroes };

  struct Request {
    Kind kind = Kind::read;
    uint64_t offset = 0;
    uint64_t length = 0;
    // Bytes transferred (reads, writes) or zeroed, or librbd's negative errno.
    int64_t result = 0;
    const char* data() const { return buffer.data(); }

    Scratch_Bytes buffer;
    void* completion = nullptr;
  };

  Rbd_Aio_Window(const Ceph_Context& image, size_t max_requests, uint64_t max_bytes,
                 bool writes_copied = false);
  ~Rbd_Aio_Window();
  Rbd_Aio_Window(const Rbd_Aio_Window&) = delete;
  Rbd_Aio_Window& operator=(const Rbd_Aio_Window&) = delete;

  // True when a request carrying `next_bytes` more must wait for a completion first.
  bool full(uint64_t next_bytes = 0) const {
    return in_flight_.size() >= max_requests_ ||
           (!in_flight_.empty() && bytes_in_flight_ + next_bytes > max_bytes_);
  }
  bool empty() const { return in_flight_.empty(); }

  // 0 when the request is in flight, else librbd's negative errno (nothing was queued).
  // Call only when !full(length). A zeroing request must not exceed MAX_ZERO_REQUEST.
  int submit_read(uint64_t offset, size_t length, int op_flags);
  int submit_write(uint64_t offset, const void* data, size_t length, int op_flags);
  int submit_zeroes(uint64_t offset, uint64_t length, int op_flags);

  // Waits for the oldest request and returns it (null when none is in flight). It stays
  // valid until the next call on the window.
  const Request* complete_oldest();

  // librbd reports a zeroing's result as an int byte count.
  static constexpr uint64_t MAX_ZERO_REQUEST = 1u << 30;

 private:
  Request& next_slot(Kind kind, uint64_t offset, uint64_t length);
  int queue(Request& r, int submitted);
  void recycle();

  const Ceph_Context image_;  // keeps the handle open while requests are in flight
  const size_t max_requests_;
  const uint64_t max_bytes_;
  uint64_t bytes_in_flight_ = 0;
  const bool writes_copied_;
  std::deque<std::unique_ptr<Request>> in_flight_;
  std::vector<std::unique_ptr<Request>> idle_;  // buffers kept for reuse
  std::unique_ptr<Request> done_;               // the last one handed back
};

}  // namespace ceph
