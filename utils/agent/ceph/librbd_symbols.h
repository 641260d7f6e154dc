/* The librbd functions this library binds, in binding order, as an X-macro:
 * X(name, REQUIRED|OPTIONAL). A missing REQUIRED function fails the binding; a missing
 * OPTIONAL one (absent from older Ceph releases) leaves its pointer null, and its users
 * check it first (AU_CEPH_LACKS_SYMBOL). rbd_snap_remove is the last required entry and
 * marks the library as bound.
 * Plain C on purpose: the test fakes are generated from this list too. */
#ifndef AGENTUTIL_CEPH_LIBRBD_SYMBOLS_H
#define AGENTUTIL_CEPH_LIBRBD_SYMBOLS_H

#define AU_LIBRBD_SYMBOLS(X)                    \
  X(rbd_version, OPTIONAL)                      \
  /* open and close */                          \
  X(rbd_open, REQUIRED)                         \
  X(rbd_open_by_id, OPTIONAL)                   \
  X(rbd_open_read_only, OPTIONAL)               \
  X(rbd_open_by_id_read_only, OPTIONAL)         \
  X(rbd_close, REQUIRED)                        \
  /* size and rollback */                       \
  X(rbd_resize, REQUIRED)                       \
  X(rbd_resize2, OPTIONAL)                      \
  X(rbd_snap_rollback, REQUIRED)                \
  X(rbd_snap_rollback_with_progress, OPTIONAL)  \
  /* reading */                                 \
  X(rbd_read, REQUIRED)                         \
  X(rbd_read2, OPTIONAL)                        \
  /* listing and creating images */             \
  X(rbd_list, REQUIRED)                         \
  X(rbd_list2, OPTIONAL)                        \
  X(rbd_create, REQUIRED)                       \
  X(rbd_create2, OPTIONAL)                      \
  X(rbd_create3, OPTIONAL)                      \
  X(rbd_image_spec_cleanup, OPTIONAL)           \
  X(rbd_image_spec_list_cleanup, OPTIONAL)      \
  /* snapshot listing */                        \
  X(rbd_snap_list, REQUIRED)                    \
  X(rbd_snap_list_end, REQUIRED)                \
  X(rbd_snap_exists, OPTIONAL)                  \
  /* changed extents */                         \
  X(rbd_diff_iterate, REQUIRED)                 \
  X(rbd_diff_iterate2, OPTIONAL)                \
  /* writing */                                 \
  X(rbd_write, REQUIRED)                        \
  X(rbd_write2, OPTIONAL)                       \
  X(rbd_flush, REQUIRED)                        \
  X(rbd_discard, REQUIRED)                      \
  X(rbd_writesame, OPTIONAL)                    \
  X(rbd_write_zeroes, OPTIONAL)                 \
  X(rbd_compare_and_write, OPTIONAL)            \
  /* snapshots and image properties */          \
  X(rbd_snap_create, REQUIRED)                  \
  X(rbd_stat, REQUIRED)                         \
  X(rbd_get_size, REQUIRED)                     \
  X(rbd_get_features, REQUIRED)                 \
  X(rbd_update_features, REQUIRED)              \
  X(rbd_get_stripe_unit, REQUIRED)              \
  X(rbd_get_stripe_count, REQUIRED)             \
  X(rbd_get_block_name_prefix, OPTIONAL)        \
  X(rbd_get_op_features, OPTIONAL)              \
  X(rbd_get_access_timestamp, OPTIONAL)         \
  X(rbd_get_create_timestamp, OPTIONAL)         \
  X(rbd_get_modify_timestamp, OPTIONAL)         \
  /* removal */                                 \
  X(rbd_remove, REQUIRED)                       \
  X(rbd_remove_with_progress, OPTIONAL)         \
  X(rbd_snap_remove, REQUIRED)                  \
  X(rbd_snap_remove2, OPTIONAL)                 \
  X(rbd_snap_get_namespace_type, OPTIONAL)      \
  X(rbd_snap_is_protected, OPTIONAL)            \
  /* pool and image metadata */                 \
  X(rbd_pool_metadata_get, OPTIONAL)            \
  X(rbd_pool_metadata_set, OPTIONAL)            \
  X(rbd_pool_metadata_remove, OPTIONAL)         \
  X(rbd_pool_metadata_list, OPTIONAL)           \
  X(rbd_metadata_get, OPTIONAL)                 \
  X(rbd_metadata_set, OPTIONAL)                 \
  X(rbd_metadata_remove, OPTIONAL)              \
  X(rbd_metadata_list, OPTIONAL)                \
  /* consistency groups */                      \
  X(rbd_get_group, OPTIONAL)                    \
  X(rbd_group_create, OPTIONAL)                 \
  X(rbd_group_remove, OPTIONAL)                 \
  X(rbd_group_list, OPTIONAL)                   \
  X(rbd_group_rename, OPTIONAL)                 \
  X(rbd_group_info_cleanup, OPTIONAL)           \
  X(rbd_group_snap_create, OPTIONAL)            \
  X(rbd_group_snap_create2, OPTIONAL)           \
  X(rbd_group_snap_remove, OPTIONAL)            \
  X(rbd_group_snap_list, OPTIONAL)              \
  X(rbd_group_snap_list_cleanup, OPTIONAL)      \
  X(rbd_group_image_add, OPTIONAL)              \
  X(rbd_group_image_remove, OPTIONAL)           \
  X(rbd_group_image_list, OPTIONAL)             \
  X(rbd_group_image_list_cleanup, OPTIONAL)

#endif
