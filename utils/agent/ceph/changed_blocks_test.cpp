// Chunk rounding and the in-place sort-and-merge of changed extents.
#include "utils/agent/ceph/changed_blocks.h"

#include <gtest/gtest.h>

namespace {

TEST(Changed_Blocks, rounding_moves_offset_down_and_length_up_each_alone) {
  EXPECT_EQ(Block(0, 4096), ceph::chunk_aligned_block(0, 1, 4096));
  EXPECT_EQ(Block(4096, 8192), ceph::chunk_aligned_block(5000, 4097, 4096));
  // Straddles a boundary while shorter than a chunk: the end is not recomputed.
  EXPECT_EQ(Block(0, 4096), ceph::chunk_aligned_block(4095, 2, 4096));
  EXPECT_EQ(Block(0, 1ull << 30), ceph::chunk_aligned_block(12345, 1, 1ull << 30));
}

TEST(Changed_Blocks, merge_joins_touching_and_overlapping_extents_in_place) {
  Blocks gap{{8192, 4096}, {0, 4096}};
  ceph::sort_and_merge_blocks(gap);
  EXPECT_EQ(Blocks({{0, 4096}, {8192, 4096}}), gap);

  // A contained extent must not shorten its container; a chain folds into one.
  Blocks mixed{{0, 16384}, {4096, 4096}, {16384, 4096}, {40960, 4096}, {36864, 4096},
               {40960, 8192}, {100000, 0}};
  ceph::sort_and_merge_blocks(mixed);
  EXPECT_EQ(Blocks({{0, 20480}, {36864, 12288}, {100000, 0}}), mixed);

  Blocks touching;
  for (uint64_t i = 0; i < 1000; ++i) touching.emplace_back((999 - i) * 4096, 4096);
  const Block* storage = touching.data();
  ceph::sort_and_merge_blocks(touching);
  EXPECT_EQ(Blocks({{0, 1000 * 4096}}), touching);
  EXPECT_EQ(storage, touching.data());
}

}  // namespace
