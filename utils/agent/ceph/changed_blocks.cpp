#include "utils/agent/ceph/changed_blocks.h"

#include <algorithm>
#include <cstddef>

namespace ceph {

void sort_and_merge_blocks(Blocks& blocks) {
  if (blocks.empty()) return;
  std::sort(blocks.begin(), blocks.end(),
            [](const Block& a, const Block& b) { return a.offset < b.offset; });
  size_t out = 0;
  for (size_t in = 1; in < blocks.size(); ++in) {
    Block& last = blocks[out];
    const Block& next = blocks[in];
    if (last.end() >= next.offset) {
      last.length = std::max(last.length, next.end() - last.offset);
    } else {
      blocks[++out] = next;
    }
  }
  blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(out + 1), blocks.end());
}

}  // namespace ceph
