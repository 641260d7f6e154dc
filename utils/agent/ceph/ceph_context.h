// Shared ownership of the librados/librbd handles that Ceph objects work on. Every
// client, pool, image, snapshot and group holds a copy; a handle is released when its
// last owner goes, in the order image, pool, cluster.
//
// For every Ceph object (client, pool, image, snapshot, group): the caller owns it; one
// thread at a time per object, while objects that share handles may be used on different
// threads (librados and librbd are thread-safe); every operation returns its failure
// value after one log line and leaves the object as it was; nothing throws.
#pragma once

#include <memory>

#include "framework/base/api.h"

namespace ceph {

// Each owns a heap slot holding one opaque handle (rados_t, rados_ioctx_t, rbd_image_t);
// the slot's address is what librados/librbd fill in when the handle is opened.
// Empty means "not open".
using RADOS_var = std::shared_ptr<void*>;
using Rados_IO_Ctx_var = std::shared_ptr<void*>;
using Rbd_Image_var = std::shared_ptr<void*>;

struct AGENTUTIL_API Ceph_Context {
  Ceph_Context() = default;
  Ceph_Context(const Ceph_Context& other);
  Ceph_Context(Ceph_Context&& other) noexcept;
  // By value: the old handles leave through the parameter's destructor, in order.
  Ceph_Context& operator=(Ceph_Context other) noexcept;
  // Image before pool context, pool context before cluster.
  ~Ceph_Context();

  void swap(Ceph_Context& other) noexcept;

  bool close_on_destruction_ = true;
  RADOS_var ctx_;
  Rados_IO_Ctx_var io_ctx_;
  Rbd_Image_var img_ctx_;
};

// Empty slots whose deleters release the handle they come to hold, once the last owner
// goes; with ACE debugging on they trace the release first. Create the owner, then open
// the handle into *owner.get().
RADOS_var make_cluster_var();          // rados_shutdown
Rados_IO_Ctx_var make_pool_var();      // rados_ioctx_destroy
Rbd_Image_var make_image_var();        // rbd_close
Rbd_Image_var make_snapshot_var();     // rbd_close, traced as a snapshot

}  // namespace ceph
