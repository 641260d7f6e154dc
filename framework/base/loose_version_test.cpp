#include "framework/base/loose_version.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace {

TEST(Loose_Version, validity_needs_a_leading_digit_and_only_version_characters) {
  for (const char* ok : {"1", "0.9", "v2", "V2.1", "1.0rc1", "10.2.0-beta_3+build7", "1..2",
                         "3.", "007"}) {
    EXPECT_TRUE(static_cast<bool>(Loose_Version(ok))) << ok;
  }
  for (const char* bad : {"", "v", "vx1", "latest", "rc1", ".1", "-1", "1.0 beta", "1/2",
                          "1.0~rc1", "x1.0"}) {
    EXPECT_FALSE(static_cast<bool>(Loose_Version(bad))) << bad;
  }
  EXPECT_FALSE(static_cast<bool>(Loose_Version(static_cast<const char*>(nullptr))));
  EXPECT_FALSE(static_cast<bool>(Loose_Version()));
}

TEST(Loose_Version, str_is_the_text_it_was_built_from) {
  EXPECT_EQ("v1.02-RC1", Loose_Version("v1.02-RC1").str());
  EXPECT_EQ("latest", Loose_Version("latest").str());
  EXPECT_EQ("", Loose_Version(static_cast<const char*>(nullptr)).str());
}

TEST(Loose_Version, orders_numbers_numerically_and_tags_before_releases) {
  // Each row is strictly older than the next.
  const std::vector<const char*> ascending = {
      "0.9",       "1.0a",      "1.0alpha2", "1.0alpha10", "1.0beta",  "1.0rc1",
      "1.0rc2",    "1.0",       "1.0.1",     "1.2",        "1.9.9",    "1.10",
      "1.10.0.1",  "2.0-beta",  "2.0",       "10",         "99999999999999999999",
      "100000000000000000000"};
  for (size_t i = 0; i + 1 < ascending.size(); ++i) {
    const Loose_Version older(ascending[i]), newer(ascending[i + 1]);
    EXPECT_LT(older.compare(newer), 0) << ascending[i] << " vs " << ascending[i + 1];
    EXPECT_GT(newer.compare(older), 0) << ascending[i + 1] << " vs " << ascending[i];
    EXPECT_TRUE(older < newer && newer > older && older != newer && older <= newer);
  }
}

TEST(Loose_Version, equal_versions_may_be_spelled_differently) {
  const std::vector<std::pair<const char*, const char*>> same = {
      {"1.0", "1.0.0"},   {"v1.2", "1.2"},        {"1.007", "1.7"},
      {"1-2_3", "1.2.3"}, {"1.0RC1", "1.0-rc.1"}, {"0001", "1"}};
  for (const auto& p : same) {
    EXPECT_EQ(0, Loose_Version(p.first).compare(Loose_Version(p.second)))
        << p.first << " vs " << p.second;
    EXPECT_TRUE(Loose_Version(p.first) == Loose_Version(p.second));
  }
}

TEST(Loose_Version, invalid_versions_sort_below_every_valid_one) {
  const Loose_Version invalid("latest"), other_invalid, valid("0");
  EXPECT_LT(invalid.compare(valid), 0);
  EXPECT_GT(valid.compare(invalid), 0);
  EXPECT_EQ(0, invalid.compare(other_invalid));

  std::vector<Loose_Version> v = {Loose_Version("1.10"), Loose_Version("x"),
                                  Loose_Version("1.9"), Loose_Version("2.0rc1")};
  std::sort(v.begin(), v.end(), std::greater<Loose_Version>());
  std::vector<std::string> order;
  for (const auto& x : v) order.push_back(x.str());
  EXPECT_EQ((std::vector<std::string>{"2.0rc1", "1.10", "1.9", "x"}), order);
}

}  // namespace
