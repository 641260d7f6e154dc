// get_changed_blocks through the library against `rbd diff`, on the same two snapshots of
// one scratch image, in the same run.
#pragma once

#include <string>

#include "utils/agent/ceph/ceph_snapshot.h"

namespace cephbench {

// Sets up the image on the cluster of `conf`, checks that both sides find the same
// changed bytes, prints the comparison line and removes the image. 0 when the line was
// printed; `cancelled` (never empty) stops the run between steps and inside the scans.
int compare_changed_blocks_with_rbd_diff(const std::string& conf,
                                         const ceph::Cancel_Callback& cancelled);

}  // namespace cephbench
