// The process-wide librados and librbd function pointers (ceph::rados_create,
// ceph::rbd_open, ...) that Librados_Wrapper::open and Librbd_Wrapper::open fill.
// Not installed and not exported from the shared library: they are writable, and only
// the library's own code (and its tests, through the static archives) may see them.
#pragma once

#include <rados/librados.h>
#include <rbd/librbd.h>

#include "utils/agent/ceph/ceph_symbols.h"
#include "utils/agent/ceph/librados_symbols.h"
#include "utils/agent/ceph/librbd_aio_symbols.h"
#include "utils/agent/ceph/librbd_symbols.h"

namespace ceph {

AU_CEPH_IGNORE_DEPRECATED_BEGIN
AU_LIBRADOS_SYMBOLS(AU_CEPH_DECLARE_POINTER)
AU_LIBRBD_SYMBOLS(AU_CEPH_DECLARE_POINTER)
AU_LIBRBD_AIO_SYMBOLS(AU_CEPH_DECLARE_POINTER)
AU_CEPH_IGNORE_DEPRECATED_END

}  // namespace ceph
