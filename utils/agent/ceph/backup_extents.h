// The extents a backup of an RBD snapshot reads: every byte changed since a base snapshot
// (or, without one, every byte that may hold data), each widened to the chunk grid on
// both ends and clipped to the image size, then sorted and merged.
//
// Where the image's object map can answer (fast-diff on, neither the object map nor
// fast-diff flagged invalid), a whole-object diff names the objects that changed and the
// exact diff runs inside those only, neighbouring objects as one run: the cost follows
// the change, not the image. Otherwise the exact diff walks the whole image.
//
// Unlike Ceph_Snapshot::get_changed_blocks, any image size and any chunk power between
// MIN_CHANGED_BLOCK_POWER and MAX_CHANGED_BLOCK_POWER are taken, and the end of every
// extent is rounded up from its own end, so no changed byte is left out.
#pragma once

#include <cstdint>
#include <string>

#include "utils/agent/block.h"
#include "utils/agent/ceph/ceph_context.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace ceph {

// [offset, offset + length) with its offset rounded down and its end rounded up to
// `chunk_size` (a power of two), clipped to `size`; length 0 when nothing is below it.
Block grid_extent(uint64_t offset, uint64_t length, uint64_t chunk_size, uint64_t size);

// True when the open image or snapshot's object map can answer a whole-object diff.
// False without fast-diff, with an invalid map, or without rbd_get_flags.
bool object_map_usable(const Ceph_Context& ctx);

struct Backup_Scan {
  std::string from_snap;  // empty: from the image's creation, parent included
  uint64_t size = 0;      // image size at the snapshot
  int power_of_2 = 16;    // the chunk grid
  Cancel_Callback cancel;
};

// Fills `extents` (replacing what it held). A full scan keeps only extents holding data;
// an incremental one keeps holes too (data discarded since the base is a change).
// `by_object_map`, when given, tells whether the object map narrowed the scan.
// One failure line and false on a failed diff, a bad power or a cancel.
bool backup_extents(const Ceph_Context& snap, const Backup_Scan& scan, Blocks& extents,
                    bool* by_object_map = nullptr);

}  // namespace ceph
