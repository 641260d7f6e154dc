#include "framework/base/exponential_backoff.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <vector>

namespace {

std::vector<unsigned> delays(const Exponential_Backoff_Range& range) {
  return std::vector<unsigned>(range.begin(), range.end());
}

}  // namespace

TEST(Exponential_Backoff, doubles_from_the_slot_up_to_the_cap_for_the_given_retries) {
  EXPECT_EQ((std::vector<unsigned>{1, 2, 4, 8, 16}), delays(exponential_backoff(1, 5, 60, false)));
  EXPECT_EQ((std::vector<unsigned>{1, 2, 4, 8, 16, 32, 60, 60}),
            delays(exponential_backoff(1, 8, 60, false)));
  EXPECT_TRUE(delays(exponential_backoff(1, 0, 60, false)).empty());
  const unsigned max = std::numeric_limits<unsigned>::max(), big = max / 2 + 1;
  EXPECT_EQ((std::vector<unsigned>{big, max, max}), delays(exponential_backoff(big, 3, 0, false)));

  Exponential_Backoff_Iterator it(1, 5, 60, false);
  EXPECT_EQ(5u, delays(exponential_backoff(it)).size());
  for (int i = 0; i < 4; ++i) ++it;
  EXPECT_EQ(31u, it.cumulation());
  EXPECT_TRUE(++it == Exponential_Backoff_Iterator());
}

TEST(Exponential_Backoff, jitter_draws_from_the_upper_half_of_each_slot) {
  std::set<unsigned> drawn_for_64;
  for (int run = 0; run < 50; ++run) {
    const std::vector<unsigned> d = delays(exponential_backoff(4, 6, 100, true));
    const unsigned slots[] = {4, 8, 16, 32, 64, 100};
    ASSERT_EQ(6u, d.size());
    for (size_t i = 0; i < d.size(); ++i)
      EXPECT_TRUE(d[i] >= slots[i] - slots[i] / 2 && d[i] <= slots[i]) << i << ": " << d[i];
    drawn_for_64.insert(d[4]);
  }
  EXPECT_GT(drawn_for_64.size(), 1u);
}
