// What a piece names as its source when it backs up an open RBD snapshot: the cluster's
// fsid, the pool, the image's name and id, the snapshot's id (decimal) and name, and the
// image size at the snapshot. The base fields are the backup's to fill.
#pragma once

#include <string>

#include "framework/client_io/piece_identity.h"
#include "utils/agent/ceph/ceph_records.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace ceph {

// Fills the source fields of `id` (kind "ceph") and leaves the others as they are.
// One failure line and false when librados or librbd cannot tell one of them.
bool snapshot_identity(Ceph_Snapshot& snap, piece::Identity& id);

// The snapshot `name` of the open snapshot's image: its id and the image size at it.
// False, quietly, when there is none of that name; one line when the listing fails
// (`listed` then false).
bool find_snapshot(Ceph_Snapshot& snap, const std::string& name, Snapshot_Info& info,
                   bool& listed);

}  // namespace ceph
