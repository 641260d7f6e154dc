#include "utils/agent/ceph/backup_extents.h"

#include <ace/Log_Msg.h>

#include <algorithm>

#include "framework/log/check.h"
#include "utils/agent/ceph/changed_blocks.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/rbd_handle.h"

namespace ceph {

Block grid_extent(uint64_t offset, uint64_t length, uint64_t chunk_size, uint64_t size) {
  if (offset >= size || length == 0) return Block(offset, 0);
  const uint64_t mask = ~(chunk_size - 1);
  // The end from the extent's own end: rounding offset and length apart loses the tail
  // of an extent that does not start on the grid.
  const uint64_t end = length >= size - offset ? size : offset + length;
  const uint64_t begin = offset & mask;
  return Block(begin, std::min(size, (end + chunk_size - 1) & mask) - begin);
}

bool object_map_usable(const Ceph_Context& ctx) {
  if (!ctx.img_ctx_ || rbd_get_flags == nullptr || rbd_diff_iterate2 == nullptr) return false;
  const auto image = static_cast<rbd_image_t>(*ctx.img_ctx_);
  uint64_t features = 0, flags = 0;
  if (rbd_get_features(image, &features) < 0 || (features & RBD_FEATURE_FAST_DIFF) == 0)
    return false;
  if (rbd_get_flags(image, &flags) < 0) return false;
  return (flags & (RBD_FLAG_OBJECT_MAP_INVALID | RBD_FLAG_FAST_DIFF_INVALID)) == 0;
}

namespace {

// Walks [run.offset, run.end()) and keeps what the scan keeps, on the grid.
bool scan_run(const Ceph_Context& snap, const Backup_Scan& scan, const Block& run,
              bool whole_object, Blocks& out) {
  const bool full = scan.from_snap.empty();
  const uint64_t chunk = uint64_t{1} << scan.power_of_2;
  const Diff_Callback keep = [&](uint64_t offset, uint64_t length, int exists) -> int {
    if (scan.cancel && scan.cancel()) {
      ACE_ERROR((LM_ERROR, "Cancelled the change scan of Ceph snapshot at offset %Q.\n", offset));
      return 0;
    }
    if (exists == 0 && full) return 1;  // a hole holds nothing to back up
    // Whole objects are where to look, exact: clipped only; exact extents go on the grid.
    const Block b = grid_extent(offset, length, whole_object ? 1 : chunk, scan.size);
    if (b.length > 0) out.push_back(b);
    return 1;
  };
  return rbd_handle::diff_iterate(snap, scan.from_snap, keep, run.offset, run.length, true,
                                  whole_object);
}

}  // namespace

bool backup_extents(const Ceph_Context& snap, const Backup_Scan& scan, Blocks& extents,
                    bool* by_object_map) {
  extents.clear();
  if (by_object_map != nullptr) *by_object_map = false;
  if (AU_FAILS_IF(scan.power_of_2, >, MAX_CHANGED_BLOCK_POWER)) return false;
  if (AU_FAILS_IF(scan.power_of_2, <, MIN_CHANGED_BLOCK_POWER)) return false;
  if (scan.size == 0) return true;
  Blocks runs;
  if (object_map_usable(snap)) {
    if (!scan_run(snap, scan, Block(0, scan.size), true, runs)) return false;
    sort_and_merge_blocks(runs);  // neighbouring objects: one exact walk
    if (by_object_map != nullptr) *by_object_map = true;
  } else {
    runs.emplace_back(0, scan.size);
  }
  for (const Block& run : runs)
    if (!scan_run(snap, scan, run, false, extents)) return false;
  sort_and_merge_blocks(extents);
  return true;
}

}  // namespace ceph
