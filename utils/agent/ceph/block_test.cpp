// Block is shared by every subsystem; the Ceph extent code is its first user.
#include "utils/agent/block.h"

#include <gtest/gtest.h>

namespace {

TEST(Block, intersection_of_overlapping_touching_and_disjoint_extents) {
  const Block a(100, 50);  // [100, 150)
  EXPECT_EQ(Block(120, 30), a.get_intersection(Block(120, 100)));
  EXPECT_EQ(Block(120, 30), Block(120, 100).get_intersection(a));
  EXPECT_EQ(Block(110, 10), a.get_intersection(Block(110, 10)));  // contained
  EXPECT_EQ(0u, a.get_intersection(Block(150, 10)).length);       // touching
  EXPECT_EQ(0u, a.get_intersection(Block(0, 100)).length);
  EXPECT_EQ(0u, a.get_intersection(Block(400, 1)).length);
  EXPECT_EQ(0u, a.get_intersection(Block(120, 0)).length);
}

}  // namespace
