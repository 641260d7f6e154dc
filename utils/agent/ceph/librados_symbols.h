/* The librados functions this library binds, in binding order, as an X-macro:
 * X(name, REQUIRED|OPTIONAL). A missing REQUIRED function fails the binding; a missing
 * OPTIONAL one (absent from older Ceph releases) leaves its pointer null.
 * rados_ioctx_pool_stat is the last required entry and marks the library as bound.
 * Plain C on purpose: the test fakes are generated from this list too. */
#ifndef AGENTUTIL_CEPH_LIBRADOS_SYMBOLS_H
#define AGENTUTIL_CEPH_LIBRADOS_SYMBOLS_H

#define AU_LIBRADOS_SYMBOLS(X)                  \
  X(rados_create, REQUIRED)                     \
  X(rados_create2, OPTIONAL)                    \
  X(rados_conf_read_file, REQUIRED)             \
  X(rados_conf_parse_argv, REQUIRED)            \
  X(rados_conf_parse_argv_remainder, REQUIRED)  \
  X(rados_conf_parse_env, REQUIRED)             \
  X(rados_conf_set, REQUIRED)                   \
  X(rados_conf_get, REQUIRED)                   \
  X(rados_connect, REQUIRED)                    \
  X(rados_shutdown, REQUIRED)                   \
  X(rados_ioctx_create, REQUIRED)               \
  X(rados_ioctx_create2, OPTIONAL)              \
  X(rados_ioctx_destroy, REQUIRED)              \
  X(rados_ioctx_get_pool_name, REQUIRED)        \
  X(rados_pool_list, REQUIRED)                  \
  X(rados_ioctx_pool_stat, REQUIRED)            \
  X(rados_get_min_compatible_client, OPTIONAL)  \
  X(rados_version, OPTIONAL)                    \
  X(rados_cluster_fsid, OPTIONAL)

#endif
