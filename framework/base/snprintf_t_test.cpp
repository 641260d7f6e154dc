#include "framework/base/snprintf_t.h"

#include <gtest/gtest.h>

#include <string>

TEST(snprintf_t, stays_inline_up_to_n_minus_one_characters_and_never_truncates) {
  const snprintf_t<128> path("/d2/r/v2/job/action?job_uuid=%s", "6f1c");
  EXPECT_STREQ("/d2/r/v2/job/action?job_uuid=6f1c", path.c_str());
  EXPECT_EQ(33u, path.length());
  EXPECT_FALSE(path.on_heap());
  EXPECT_FALSE(snprintf_t<8>("%s", "1234567").on_heap());

  const snprintf_t<8> spills("%s", "12345678");
  EXPECT_EQ("12345678", spills.str());
  EXPECT_TRUE(spills.on_heap());
  const std::string id(300, 'x');
  const snprintf_t<16> longer("id=%s&n=%d", id.c_str(), 42);
  EXPECT_EQ("id=" + id + "&n=42", std::string(longer));
  EXPECT_EQ(308u, longer.size());
}
