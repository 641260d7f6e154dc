#include "framework/base/loose_version.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

TEST(Loose_Version, validity_needs_a_leading_digit_and_only_version_characters) {
  for (const char* ok : {"1", "v2", "V2.1", "1.0rc1", "10.2.0-beta_3+build7", "1..2", "007"})
    EXPECT_TRUE(static_cast<bool>(Loose_Version(ok))) << ok;
  for (const char* bad : {"", "v", "latest", "rc1", ".1", "-1", "1.0 beta", "1/2", "1.0~rc1"})
    EXPECT_FALSE(static_cast<bool>(Loose_Version(bad))) << bad;
  EXPECT_FALSE(static_cast<bool>(Loose_Version(static_cast<const char*>(nullptr))));
  // A NUL inside a name is not a shorter version.
  EXPECT_FALSE(static_cast<bool>(Loose_Version(std::string("1.0\0evil", 8))));
  EXPECT_EQ("v1.02-RC1", Loose_Version("v1.02-RC1").str());
}

TEST(Loose_Version, orders_numbers_numerically_and_tags_before_releases) {
  const std::vector<const char*> ascending = {
      "latest",   "0.9",   "1.0a",   "1.0alpha2", "1.0alpha10", "1.0beta", "1.0rc2",
      "1.0",      "1.0.1", "1.9.9",  "1.10",      "2.0-beta",   "2.0",     "10",
      "99999999999999999999", "100000000000000000000"};
  for (size_t i = 0; i + 1 < ascending.size(); ++i) {
    const Loose_Version older(ascending[i]), newer(ascending[i + 1]);
    EXPECT_LT(older.compare(newer), 0) << ascending[i] << " < " << ascending[i + 1];
    EXPECT_TRUE(older < newer && newer > older && older != newer) << ascending[i];
  }
  // Equal versions may be spelled differently.
  for (const auto& [a, b] : {std::make_pair("1.0", "1.0.0"), std::make_pair("v1.2", "1.2"),
                             std::make_pair("1.007", "1.7"), std::make_pair("1.0RC1", "1.0-rc.1"),
                             std::make_pair("x", "y")})
    EXPECT_TRUE(Loose_Version(a) == Loose_Version(b)) << a << " " << b;
}
