#include <gtest/gtest.h>

#include <boost/algorithm/hex.hpp>
#include <cctype>
#include <string>
#include <vector>

#include "framework/base/base64.h"
#include "framework/base/hex_string.h"
#include "tests/support/log_capture.h"

TEST(Hex_String, decodes_either_case_and_round_trips_every_byte) {
  std::vector<unsigned char> bytes;
  EXPECT_TRUE(Hex_String("00ff10aBDE").get_bytes(bytes));
  EXPECT_EQ((std::vector<unsigned char>{0x00, 0xff, 0x10, 0xab, 0xde}), bytes);
  std::string all, back;
  for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
  EXPECT_EQ("fdfeff", hex_encode(all).substr(506));
  EXPECT_EQ("FDFEFF", hex_encode(all, Hex_Case::UPPER).substr(506));
  EXPECT_TRUE(Hex_String(hex_encode(all)).get_bytes(back));
  EXPECT_EQ(all, back);
}

TEST(Hex_String, odd_length_and_foreign_characters_fail_with_one_log_line) {
  au_test::Log_Capture logs;
  std::string out = "stale";
  EXPECT_FALSE(Hex_String("abc").get_bytes(out));
  EXPECT_TRUE(out.empty());
  EXPECT_FALSE(Hex_String("0x01").get_bytes(out));
  ASSERT_EQ(2u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to decode hex text of 3 characters: odd number of digits.\n"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to decode hex text of 4 characters: not a hex digit at 1.\n"));
}

// The decoder takes sixteen digits at a time with byte-wise range tricks: every character, at
// every position of such a block and in the tail after it, must be judged as isxdigit does and
// decoded as boost does.
TEST(Hex_String, every_character_at_every_position_is_judged_like_isxdigit) {
  au_test::Log_Capture logs;
  const std::string digits = "0123456789abcDEF" "FEDcba9876543210" "7f";
  for (int c = 0; c < 256; ++c) {
    for (size_t at = 0; at < digits.size(); ++at) {
      std::string text = digits;
      text[at] = static_cast<char>(c);
      std::string bytes;
      const bool valid = std::isxdigit(c) != 0;
      ASSERT_EQ(valid, Hex_String(text).get_bytes(bytes)) << "char " << c << " at " << at;
      if (valid) {
        ASSERT_EQ(boost::algorithm::unhex(text), bytes) << "char " << c << " at " << at;
      }
    }
  }
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to decode hex text of 34 characters: not a hex digit at 33.\n"));
}

TEST(Base64, matches_the_rfc_4648_vectors_and_never_wraps_lines) {
  const std::pair<std::string, std::string> vectors[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}};
  for (const auto& v : vectors) {
    std::string decoded;
    EXPECT_EQ(v.second, base64_encode(v.first));
    EXPECT_TRUE(base64_decode(v.second, decoded) && decoded == v.first) << v.second;
  }
  const std::string key(300, '\0');
  const std::string text = base64_encode(key.data(), key.size());
  EXPECT_EQ(400u, text.size());
  EXPECT_EQ(std::string::npos, text.find('\n'));
  std::vector<unsigned char> bytes;
  EXPECT_TRUE(base64_decode(text.substr(0, 76) + "\r\n" + text.substr(76), bytes));
  EXPECT_EQ(300u, bytes.size());
}

TEST(Base64, malformed_text_fails_with_one_log_line_and_no_partial_result) {
  const std::pair<std::string, std::string> bad[] = {
      {"Zm9vYmFy!Zm9v", "not a Base64 character at 8"}, {"Zm9vY", "incomplete group at 5"},
      {"Zg=a", "data after padding at 3"}, {"Z===", "too much padding at 3"},
      {std::string("Zm9v\0Zm9v", 9), "not a Base64 character at 4"}};
  for (const auto& b : bad) {
    au_test::Log_Capture logs;
    std::string out = "stale";
    EXPECT_FALSE(base64_decode(b.first, out)) << b.first;
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(1u, logs.records().size()) << logs.dump();
    EXPECT_TRUE(logs.has(LM_ERROR, "Failed to decode Base64 text of " +
                                       std::to_string(b.first.size()) + " characters: " +
                                       b.second + ".\n"))
        << logs.dump();
  }
}
