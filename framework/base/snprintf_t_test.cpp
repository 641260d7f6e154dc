#include "framework/base/snprintf_t.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(snprintf_t, short_text_stays_inline_and_long_text_is_never_truncated) {
  const snprintf_t<128> path("/d2/r/v2/job/action?job_uuid=%s", "6f1c");
  EXPECT_STREQ("/d2/r/v2/job/action?job_uuid=6f1c", path.c_str());
  EXPECT_EQ(33u, path.length());
  EXPECT_FALSE(path.on_heap());

  const std::string id(300, 'x');
  const snprintf_t<16> longer("id=%s&n=%d", id.c_str(), 42);
  EXPECT_EQ("id=" + id + "&n=42", longer.str());
  EXPECT_EQ(308u, longer.size());
  EXPECT_TRUE(longer.on_heap());
  EXPECT_EQ(longer.str(), std::string(static_cast<const char*>(longer)));
}

TEST(snprintf_t, the_boundary_length_fits_exactly_once_room_is_left_for_the_nul) {
  const snprintf_t<8> fits("%s", "1234567");  // 7 characters + NUL
  EXPECT_EQ("1234567", fits.str());
  EXPECT_FALSE(fits.on_heap());
  const snprintf_t<8> spills("%s", "12345678");
  EXPECT_EQ("12345678", spills.str());
  EXPECT_TRUE(spills.on_heap());
  const snprintf_t<4> empty("%s", "");
  EXPECT_EQ(0u, empty.length());
  EXPECT_STREQ("", empty.c_str());
}

}  // namespace
