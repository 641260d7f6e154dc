#include "utils/agent/ceph/ceph_context.h"

#include <utility>

#include "framework/log/trace.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace ceph {

Ceph_Context::Ceph_Context(const Ceph_Context& other)
    : close_on_destruction_(other.close_on_destruction_),
      ctx_(other.ctx_),
      io_ctx_(other.io_ctx_),
      img_ctx_(other.img_ctx_) {}

Ceph_Context::Ceph_Context(Ceph_Context&& other) noexcept
    : close_on_destruction_(other.close_on_destruction_),
      ctx_(std::move(other.ctx_)),
      io_ctx_(std::move(other.io_ctx_)),
      img_ctx_(std::move(other.img_ctx_)) {}

Ceph_Context& Ceph_Context::operator=(Ceph_Context other) noexcept {
  swap(other);
  return *this;
}

Ceph_Context::~Ceph_Context() {
  img_ctx_.reset();
  io_ctx_.reset();
  ctx_.reset();
}

void Ceph_Context::swap(Ceph_Context& other) noexcept {
  std::swap(close_on_destruction_, other.close_on_destruction_);
  ctx_.swap(other.ctx_);
  io_ctx_.swap(other.io_ctx_);
  img_ctx_.swap(other.img_ctx_);
}

namespace {

// The slot is freed in every case; the handle is released only if it was opened and
// the release function is bound.
struct Release_Cluster {
  void operator()(void** slot) const {
    if (slot != nullptr && *slot != nullptr) {
      AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t called Client::rados_shutdown(%@)\n"), *slot));
      if (rados_shutdown != nullptr) rados_shutdown(*slot);
      *slot = nullptr;
    }
    delete slot;
  }
};

struct Release_Pool {
  void operator()(void** slot) const {
    if (slot != nullptr && *slot != nullptr) {
      AU_DEBUG_TRACE(
          (LM_DEBUG, ACE_TEXT("Thread %t called Pool::rados_ioctx_destroy(%@)\n"), *slot));
      if (rados_ioctx_destroy != nullptr) rados_ioctx_destroy(*slot);
      *slot = nullptr;
    }
    delete slot;
  }
};

struct Release_Image {
  const char* trace;  // names the owner: image or snapshot
  void operator()(void** slot) const {
    if (slot != nullptr && *slot != nullptr) {
      AU_DEBUG_TRACE((LM_DEBUG, trace, *slot));
      if (rbd_close != nullptr) rbd_close(*slot);
      *slot = nullptr;
    }
    delete slot;
  }
};

}  // namespace

RADOS_var make_cluster_var() { return RADOS_var(new void*(nullptr), Release_Cluster()); }

Rados_IO_Ctx_var make_pool_var() { return Rados_IO_Ctx_var(new void*(nullptr), Release_Pool()); }

Rbd_Image_var make_image_var() {
  return Rbd_Image_var(new void*(nullptr),
                       Release_Image{ACE_TEXT("Thread %t called Image::rbd_close(%@)\n")});
}

Rbd_Image_var make_snapshot_var() {
  return Rbd_Image_var(new void*(nullptr),
                       Release_Image{ACE_TEXT("Thread %t called Snapshot::rbd_close(%@)\n")});
}

}  // namespace ceph
