#include "utils/agent/http_query_string.h"

#include <gtest/gtest.h>

namespace {

std::string encode(const char* text, unsigned flags) {
  std::string out;
  http_encode_string_i(text, flags, out);
  return out;
}

}  // namespace

TEST(HTTP_Encode, escapes_by_flags) {
  EXPECT_EQ("a+b%2fc", encode("a b/c", HTTP_QUERY_ENCODE_FLAGS));
  EXPECT_EQ("a%20b/c", encode("a b/c", 0));
  EXPECT_EQ("a%2Fb%3A", encode("a/b:", HTTP_ENCODE_SLASH | HTTP_ENCODE_UPPER_HEX));
  EXPECT_EQ("AZaz09-_.~", encode("AZaz09-_.~", 0x7ffff));

  // Each kept punctuation byte is escaped without its flag and copied with it.
  const struct {
    char c;
    unsigned flag;
    const char* escaped;
  } marks[] = {{':', 0x8, "%3a"},     {'(', 0x10, "%28"},    {')', 0x20, "%29"},
               {'\'', 0x40, "%27"},   {'*', 0x80, "%2a"},    {'!', 0x200, "%21"},
               {'#', 0x400, "%23"},   {'$', 0x800, "%24"},   {'&', 0x1000, "%26"},
               {'+', 0x2000, "%2b"},  {',', 0x4000, "%2c"},  {';', 0x8000, "%3b"},
               {'=', 0x10000, "%3d"}, {'?', 0x20000, "%3f"}, {'@', 0x40000, "%40"}};
  for (const auto& m : marks) {
    const char text[] = {m.c, '\0'};
    EXPECT_EQ(m.escaped, encode(text, (0x7ffff & ~HTTP_ENCODE_UPPER_HEX) & ~m.flag)) << m.c;
    EXPECT_EQ(std::string(1, m.c), encode(text, m.flag)) << m.c;
  }

  // Bytes above 0x7f are unsigned: UTF-8 and stray bytes escape byte by byte.
  EXPECT_EQ("%c3%a9%ff%01", encode("\xc3\xa9\xff\x01", HTTP_QUERY_ENCODE_FLAGS));

  std::string out = "kept";
  EXPECT_FALSE(http_encode_string_i(nullptr, 0, out));
  EXPECT_FALSE(http_encode_string_i("", 0, out));
  EXPECT_EQ("kept", out);
}

TEST(HTTP_Query_String_Builder, joins_parameters) {
  std::string query;
  HTTP_Query_String_Builder add(query);
  add(nullptr, "x");
  add("", "x");
  EXPECT_EQ("", query);  // a nameless parameter adds not even a separator
  add("instance uuid", "u/1 2");
  add("flag", nullptr);
  add("empty", "");
  add("raw", "a b", true, false);
  add("n", "v", false, false, "p.");
  EXPECT_EQ("instance+uuid=u%2f1+2&flag&empty=&raw=a b&p.n=v", query);

  // A target that already holds text continues with "&".
  std::string more = "a=1";
  HTTP_Query_String_Builder append(more);
  append("b", "2");
  EXPECT_EQ("a=1&b=2", more);
}
