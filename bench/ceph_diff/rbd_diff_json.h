// The extents of `rbd diff --format json`, put through the library's own rounding and
// merging so they can be compared entry for entry with get_changed_blocks.
#pragma once

#include <cstdint>
#include <string>

#include "utils/agent/block.h"

namespace cephbench {

// Every entry ({"offset", "length", "exists"}; holes included, as get_changed_blocks
// keeps them with ignore_file_hole false) widened to `chunk` and merged into `blocks`.
// False, with the reason on stderr, when the text is not such a list.
bool read_rbd_diff(const std::string& text, uint64_t chunk, Blocks& blocks);

uint64_t total_bytes(const Blocks& blocks);

}  // namespace cephbench
