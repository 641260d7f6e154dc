// The library's sort-and-merge of changed extents against a bare std::sort of the same
// extents: the merge pass should add little to the sort it follows.
#pragma once

#include "utils/agent/ceph/ceph_snapshot.h"

namespace cephbench {

// Prints the comparison line; 0 when it was printed. `cancelled` is never empty.
int compare_merge_with_sort(const ceph::Cancel_Callback& cancelled);

}  // namespace cephbench
