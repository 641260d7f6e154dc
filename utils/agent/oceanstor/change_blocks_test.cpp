// Runs of set bits in an array bitmap become chunk extents.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "framework/base/hex_string.h"
#include "tests/support/log_capture.h"
#include "utils/agent/oceanstor/change_blocks_internal.h"
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

// The same bitmap as hex text cut into pieces at random (as the array's segments cut it),
// each folded as it comes.
std::vector<Block> folded_in_pieces(const Bytes& bitmap, std::mt19937& rng, unsigned long* total) {
  const std::string text = hex_encode(bitmap.data(), bitmap.size(), rng() % 2 ? Hex_Case::UPPER : Hex_Case::LOWER);
  std::vector<Block> blocks;
  oceanstor::Change_Block_Folder folder(7, blocks);
  for (size_t at = 0; at < text.size();) {
    const size_t digits = std::min(text.size() - at, 2 * size_t(rng() % 12));
    EXPECT_TRUE(folder.add_hex(text.substr(at, digits)));
    at += digits;
  }
  *total = folder.finish();
  return blocks;
}

// The word-at-a-time walk against the plain reading (one test per bit) on random bitmaps of
// every length around the 8-byte word, with runs that cross words and pieces and reach the end.
TEST(OceanStor_Change_Blocks, matches_a_bit_by_bit_reading_on_random_bitmaps) {
  std::mt19937 rng(5);
  for (int round = 0; round < 3000; ++round) {
    Bytes bitmap(rng() % 41, 0);
    const unsigned density = rng() % 4;  // clear, sparse, random, mostly set
    for (auto& byte : bitmap) {
      const unsigned r = rng();
      byte = static_cast<unsigned char>(density == 0 ? 0 : density == 1 ? (r % 16 ? 0 : r >> 8)
                                        : density == 2 ? r : (r % 8 ? 0xFF : r >> 8));
    }
    std::vector<Block> expected;
    unsigned long run = 0, total = 0;
    for (unsigned long i = 0; i <= 8 * bitmap.size(); ++i) {
      if (i < 8 * bitmap.size() && (bitmap[i / 8] >> (i % 8) & 1)) {
        ++run;
      } else if (run) {
        expected.emplace_back(7 + i - run, run);
        total += run;
        run = 0;
      }
    }
    unsigned long got_total = 0;
    ASSERT_EQ(expected, extents(bitmap, 7, &got_total)) << "round " << round;
    ASSERT_EQ(total, got_total);
    ASSERT_EQ(expected, folded_in_pieces(bitmap, rng, &got_total)) << "round " << round;
    ASSERT_EQ(total, got_total);
  }
}

TEST(OceanStor_Change_Blocks, appends_after_existing_entries_and_reports_the_total) {
  au_test::Log_Capture log;
  std::vector<Block> blocks{{1, 1}};
  EXPECT_EQ(5u, oceanstor::parse_change_blocks(Bytes{0x55, 0x80}, 0, blocks));
  EXPECT_EQ((std::vector<Block>{{1, 1}, {0, 1}, {2, 1}, {4, 1}, {6, 1}, {15, 1}}), blocks);
  EXPECT_TRUE(log.has(LM_INFO, "Total trunk blocks: 5.\n")) << log.dump();

  // Text that is no hex is refused whole, and what came before still stands.
  oceanstor::Change_Block_Folder folder(0, blocks);
  EXPECT_TRUE(folder.add_hex("0f"));
  for (const char* bad : {"F", "0G", "zz"}) EXPECT_FALSE(folder.add_hex(bad)) << bad;
  EXPECT_EQ(4u, folder.finish());
  EXPECT_EQ((Block{0, 4}), blocks.back());
}

}  // namespace
