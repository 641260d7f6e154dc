// An RBD image as the target of a chain restore (framework/chain/restore_target.h).
//
// The image is opened as Ceph_Image_Writer opens it (librbd's cache off on the client,
// exclusive lock taken at open). Writes and zeroings go through librbd's asynchronous
// calls in a window (Rbd_Aio_Window) when it has them, else one at a time; a failure in
// flight shows at the next call or at flush(). Zeroing is skipped where the image is known
// to hold no data: all of a new image, the part past the old size after a grow, and where
// the object map of an existing image says no object holds any.
//
// Ownership: the caller owns the target, and the target its image handle (closed, and the
// lock let go, when the target goes). Threads: one at a time. Failures: false with one
// line in last_error(); open() logs its own lines as the writer's open does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "framework/base/api.h"
#include "framework/chain/restore_target.h"
#include "utils/agent/ceph/ceph_image.h"

namespace ceph {

class Ceph_Client;
class Rbd_Aio_Window;

class AGENTUTIL_API Rbd_Restore_Target : public Restore_Target {
 public:
  Rbd_Restore_Target();
  // Lands what is still in flight before the image closes.
  ~Rbd_Restore_Target() override;
  Rbd_Restore_Target(const Rbd_Restore_Target&) = delete;
  Rbd_Restore_Target& operator=(const Rbd_Restore_Target&) = delete;

  // `is_new`: the caller just created the image, so none of it holds data.
  bool open(Ceph_Client& client, const std::string& image_uri, bool is_new);
  Ceph_Image& image() { return image_; }

  std::string name() const override;
  bool size(uint64_t& bytes) override;
  bool resize(uint64_t bytes) override;
  bool write(uint64_t offset, const void* data, size_t length) override;
  bool zero(uint64_t offset, uint64_t length) override;
  bool flush() override;

 private:
  bool check_range(uint64_t offset, uint64_t length, const char* what);
  bool make_room(uint64_t next_bytes);
  bool land_oldest();
  bool zero_part(uint64_t offset, uint64_t length);
  // Marks the target broken and keeps "Failed to <action>, errno=..." as its error.
  bool failed(const std::string& action, int64_t r);
  std::string quoted() const;                               // Ceph image 'ceph://p/i'
  std::string at(uint64_t offset, uint64_t length) const;  // N bytes at offset O of ...
  void forget_clean(uint64_t offset, uint64_t end);

  Ceph_Image image_;
  std::unique_ptr<Rbd_Aio_Window> window_;
  uint64_t size_ = 0;
  int write_flag_ = 0;
  bool broken_ = false;  // a request failed: every later call fails with its line
  // Known to hold no data, begin -> end, apart; a write takes its range out.
  std::map<uint64_t, uint64_t> clean_;
};

}  // namespace ceph
