#include "utils/agent/ceph/snapshot_identity.h"

#include <ace/Log_Msg.h>

#include <cstring>
#include <vector>

#include "utils/agent/ceph/ceph_error.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace ceph {

namespace {

// "<what> of Ceph snapshot 'pool/image@snap'" failure line with librados' code.
bool identity_failed(const Ceph_Snapshot& snap, const char* what, int r) {
  const Ceph_Error e(r);
  ACE_ERROR((LM_ERROR, "Failed to get the %s of Ceph snapshot '%s/%s@%s': code %d, msg %s.\n",
             what, snap.pool_name().c_str(), snap.image_name().c_str(),
             snap.snapshot_name().c_str(), e.code, e.text()));
  return false;
}

// librados and librbd answer -ERANGE when the buffer is short; fsids and image ids fit in
// far less than this.
constexpr size_t ID_ROOM = 256;

}  // namespace

bool find_snapshot(Ceph_Snapshot& snap, const std::string& name, Snapshot_Info& info,
                   bool& listed) {
  // The listing through a head that shares the snapshot's handle: rbd_snap_list serves
  // both and names the same snapshots.
  Ceph_Image image(snap.context());
  image.pool_name(snap.pool_name());
  image.image_name(snap.image_name());
  std::vector<Snapshot_Info> snapshots;
  listed = image.list_snapshot(snapshots);
  if (!listed) return false;
  for (const Snapshot_Info& s : snapshots) {
    if (s.name != name) continue;
    info = s;
    return true;
  }
  return false;
}

bool snapshot_identity(Ceph_Snapshot& snap, piece::Identity& id) {
  const Ceph_Context& ctx = snap.context();
  if (!ctx.img_ctx_ || !ctx.ctx_) return identity_failed(snap, "identity", -EBADF);
  if (rados_cluster_fsid == nullptr) return identity_failed(snap, "cluster fsid", -ENOSYS);
  if (rbd_get_id == nullptr) return identity_failed(snap, "image id", -ENOSYS);
  char text[ID_ROOM] = {};
  int r = rados_cluster_fsid(static_cast<rados_t>(*ctx.ctx_), text, sizeof text - 1);
  if (r < 0) return identity_failed(snap, "cluster fsid", r);
  id.cluster.assign(text, strnlen(text, sizeof text));
  std::memset(text, 0, sizeof text);
  r = rbd_get_id(static_cast<rbd_image_t>(*ctx.img_ctx_), text, sizeof text - 1);
  if (r < 0) return identity_failed(snap, "image id", r);
  id.image_id.assign(text, strnlen(text, sizeof text));

  Snapshot_Info info;
  bool listed = false;
  if (!find_snapshot(snap, snap.snapshot_name(), info, listed))
    return listed ? identity_failed(snap, "snapshot id", -ENOENT) : false;
  id.source_kind = "ceph";
  id.pool = snap.pool_name();
  id.image_name = snap.image_name();
  id.snapshot_id = std::to_string(info.id);
  id.snapshot_name = snap.snapshot_name();
  id.image_size = info.size;
  return true;
}

}  // namespace ceph
