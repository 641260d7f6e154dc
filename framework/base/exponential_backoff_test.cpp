#include "framework/base/exponential_backoff.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <vector>

namespace {

std::vector<unsigned> delays(const Exponential_Backoff_Range& range) {
  return std::vector<unsigned>(range.begin(), range.end());
}

TEST(Exponential_Backoff, doubles_from_the_slot_for_the_given_number_of_retries) {
  EXPECT_EQ((std::vector<unsigned>{1, 2, 4, 8, 16}), delays(exponential_backoff(1, 5, 60, false)));
  EXPECT_EQ((std::vector<unsigned>{3, 6, 12}), delays(exponential_backoff(3, 3, 0, false)));
  EXPECT_TRUE(delays(exponential_backoff(1, 0, 60, false)).empty());

  Exponential_Backoff_Iterator it(1, 5, 60, false);
  EXPECT_EQ((std::vector<unsigned>{1, 2, 4, 8, 16}), delays(exponential_backoff(it)));
  for (int i = 0; i < 4; ++i) ++it;
  EXPECT_EQ(16u, *it);
  EXPECT_EQ(4u, it.index());
  EXPECT_EQ(31u, it.cumulation());
  ++it;
  EXPECT_TRUE(it == Exponential_Backoff_Iterator());
}

TEST(Exponential_Backoff, holds_at_the_cap_without_overflowing) {
  EXPECT_EQ((std::vector<unsigned>{1, 2, 4, 8, 16, 32, 60, 60, 60}),
            delays(exponential_backoff(1, 9, 60, false)));
  EXPECT_EQ((std::vector<unsigned>{60, 60}), delays(exponential_backoff(90, 2, 60, false)));

  const unsigned max = std::numeric_limits<unsigned>::max();
  const unsigned big = max / 2 + 1;
  EXPECT_EQ((std::vector<unsigned>{big, max, max}), delays(exponential_backoff(big, 3, 0, false)));
}

TEST(Exponential_Backoff, jitter_draws_from_the_upper_half_of_each_slot) {
  std::set<unsigned> drawn_for_64;
  for (int run = 0; run < 50; ++run) {
    const std::vector<unsigned> d = delays(exponential_backoff(4, 6, 100, true));
    ASSERT_EQ(6u, d.size());
    const unsigned slots[] = {4, 8, 16, 32, 64, 100};
    for (size_t i = 0; i < d.size(); ++i) {
      EXPECT_GE(d[i], slots[i] - slots[i] / 2) << "delay " << i;
      EXPECT_LE(d[i], slots[i]) << "delay " << i;
    }
    drawn_for_64.insert(d[4]);
  }
  EXPECT_GT(drawn_for_64.size(), 1u);
}

}  // namespace
