// One extent: `offset` and `length` in the caller's unit (bytes for Ceph images, bitmap
// chunks for OceanStor). Lists of extents are kept sorted by offset.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

struct Block {
  Block() = default;
  Block(uint64_t offset_, uint64_t length_) : offset(offset_), length(length_) {}

  // One past the last unit; no overflow check.
  uint64_t end() const { return offset + length; }

  bool operator==(const Block& other) const {
    return offset == other.offset && length == other.length;
  }
  bool operator!=(const Block& other) const { return !(*this == other); }

  // The part both extents cover; length 0 when they do not overlap.
  Block get_intersection(const Block& other) const {
    const uint64_t begin = std::max(offset, other.offset);
    const uint64_t finish = std::min(end(), other.end());
    return finish > begin ? Block(begin, finish - begin) : Block(begin, 0);
  }

  uint64_t offset = 0;
  uint64_t length = 0;
};

using Blocks = std::vector<Block>;
// The extent an operation examines.
using Range = Block;
