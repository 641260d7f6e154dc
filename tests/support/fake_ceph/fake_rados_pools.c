/* A librados whose pool listing can be made to misbehave, for Ceph_Client::list_pool.
 * Every other function is the -ENOSYS stand-in of fake_ceph.c. The client id given to
 * rados_create picks the behaviour of rados_pool_list on that handle:
 *   "grow"   the pools change between the sizing call and the listing call
 *   "empty"  the sizing call asks for 0 bytes
 *   "fail"   -EIO
 *   other    two pools, "rbd" and "backup" */
#include <errno.h>
#include <string.h>

#include "utils/agent/ceph/librados_symbols.h"

#define rados_create unused_rados_create
#define rados_connect unused_rados_connect
#define rados_pool_list unused_rados_pool_list
#define FAKE_SYMBOL(sym, kind) \
  int sym(void) { return -ENOSYS; }
AU_LIBRADOS_SYMBOLS(FAKE_SYMBOL)
#undef rados_create
#undef rados_connect
#undef rados_pool_list

struct fake_cluster {
  char mode[16];
  int calls;
};

static struct fake_cluster clusters[8];
static int cluster_count;

int rados_create(void** cluster, const char* id) {
  if (cluster_count == 8) return -ENOMEM;
  struct fake_cluster* c = &clusters[cluster_count++];
  strncpy(c->mode, id ? id : "", sizeof(c->mode) - 1);
  *cluster = c;
  return 0;
}

int rados_connect(void* cluster) { return cluster ? 0 : -EINVAL; }

/* Like librados: the bytes needed (names, each NUL-terminated, and a final NUL), copying
 * only when they fit. */
int rados_pool_list(void* cluster, char* buf, size_t len) {
  static const char two[] = "rbd\0backup\0";
  static const char three[] = "rbd\0backup\0new\0";
  struct fake_cluster* c = cluster;
  const int first = c->calls++ == 0;
  if (strcmp(c->mode, "fail") == 0) return -EIO;
  if (strcmp(c->mode, "empty") == 0) return 0;
  const char* names = two;
  size_t needed = sizeof(two);
  if (strcmp(c->mode, "grow") == 0 && !first) {
    names = three;
    needed = sizeof(three);
  }
  if (buf != NULL && len >= needed) memcpy(buf, names, needed);
  return (int)needed;
}
