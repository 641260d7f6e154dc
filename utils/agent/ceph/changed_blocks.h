// The two list operations behind changed-extent extraction: widening one extent to the
// chunk grid, and turning the collected extents into a sorted list without overlaps.
#pragma once

#include <cstdint>

#include "utils/agent/block.h"

namespace ceph {

// Offset rounded down and length rounded up to `chunk_size` (a power of two), each on its
// own: the end is not recomputed, so {4095, 2} on a 4096 grid gives {0, 4096}.
inline Block chunk_aligned_block(uint64_t offset, uint64_t length, uint64_t chunk_size) {
  const uint64_t mask = ~(chunk_size - 1);
  return Block(offset & mask, (length + chunk_size - 1) & mask);
}

// Sorts by offset, then folds overlapping or touching extents together, in place and in
// one pass; the vector only shrinks, so nothing is allocated.
void sort_and_merge_blocks(Blocks& blocks);

}  // namespace ceph
