/* librbd's asynchronous calls, bound as a table of their own after AU_LIBRBD_SYMBOLS (which
 * stays as it is), with the image configuration listing that tells whether librbd copies
 * what it is asked to write, the explicit exclusive lock a restore takes at open, and what
 * a backup asks of an image: its id (for a piece's identity) and its flags (whether its
 * object map may answer a diff). Every entry is optional: the data paths that use them
 * (rbd_aio_window.h) fall back to the synchronous calls unless the calls are bound; without
 * rbd_lock_acquire the first write takes the lock, as librbd does by itself; without
 * rbd_get_flags a backup diffs the image exactly, without rbd_get_id it fails.
 * Plain C on purpose: the test fakes are generated from this list too. */
#ifndef AGENTUTIL_CEPH_LIBRBD_AIO_SYMBOLS_H
#define AGENTUTIL_CEPH_LIBRBD_AIO_SYMBOLS_H

#define AU_LIBRBD_AIO_SYMBOLS(X)          \
  X(rbd_aio_create_completion, OPTIONAL)  \
  X(rbd_aio_wait_for_complete, OPTIONAL)  \
  X(rbd_aio_get_return_value, OPTIONAL)   \
  X(rbd_aio_release, OPTIONAL)            \
  X(rbd_aio_read, OPTIONAL)               \
  X(rbd_aio_read2, OPTIONAL)              \
  X(rbd_aio_write, OPTIONAL)              \
  X(rbd_aio_write2, OPTIONAL)             \
  X(rbd_aio_discard, OPTIONAL)            \
  X(rbd_aio_write_zeroes, OPTIONAL)      \
  X(rbd_config_image_list, OPTIONAL)     \
  X(rbd_config_image_list_cleanup, OPTIONAL) \
  X(rbd_lock_acquire, OPTIONAL)          \
  X(rbd_get_id, OPTIONAL)                \
  X(rbd_get_flags, OPTIONAL)

#endif
