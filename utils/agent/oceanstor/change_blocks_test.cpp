// Runs of set bits in an array bitmap become chunk extents.
#include <gtest/gtest.h>

#include "tests/support/log_capture.h"
#include "utils/agent/oceanstor/oceanstor_client.h"

namespace {

using Bytes = std::basic_string<unsigned char>;

std::vector<Block> extents(const Bytes& bitmap, unsigned long start = 0, unsigned long* total = nullptr) {
  std::vector<Block> blocks;
  const unsigned long set = oceanstor::parse_change_blocks(bitmap, start, blocks);
  if (total) *total = set;
  return blocks;
}

TEST(OceanStor_Change_Blocks, bits_are_read_least_significant_first_and_runs_merge) {
  EXPECT_EQ((std::vector<Block>{{0, 4}}), extents(Bytes{0x0F}));
  EXPECT_EQ((std::vector<Block>{{4, 4}}), extents(Bytes{0xF0}));
  EXPECT_EQ((std::vector<Block>{{0, 1}, {7, 1}}), extents(Bytes{0x81}));
  EXPECT_EQ((std::vector<Block>{{0, 9}}), extents(Bytes{0xFF, 0x01}));
  EXPECT_EQ((std::vector<Block>{{7, 2}, {15, 1}}), extents(Bytes{0x80, 0x81}));
  EXPECT_EQ((std::vector<Block>{{100, 9}}), extents(Bytes{0xFF, 0x01}, 100));

  unsigned long total = 99;
  EXPECT_TRUE(extents(Bytes(16, 0x00), 0, &total).empty());
  EXPECT_EQ(0u, total);
  EXPECT_EQ((std::vector<Block>{{0, 8 * 1000}}), extents(Bytes(1000, 0xFF), 0, &total));
  EXPECT_EQ(8000u, total);
  EXPECT_TRUE(extents(Bytes()).empty());
}

TEST(OceanStor_Change_Blocks, appends_after_existing_entries_and_reports_the_total) {
  au_test::Log_Capture log;
  std::vector<Block> blocks{{1, 1}};
  EXPECT_EQ(5u, oceanstor::parse_change_blocks(Bytes{0x55, 0x80}, 0, blocks));
  EXPECT_EQ((std::vector<Block>{{1, 1}, {0, 1}, {2, 1}, {4, 1}, {6, 1}, {15, 1}}), blocks);
  EXPECT_TRUE(log.has(LM_INFO, "Total trunk blocks: 5.\n")) << log.dump();
}

}  // namespace
