#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/base/base64.h"
#include "framework/base/hex_string.h"
#include "tests/support/log_capture.h"

namespace {

using Bytes = std::vector<unsigned char>;

TEST(Hex_String, decodes_both_letter_cases_high_digit_first) {
  Bytes bytes;
  EXPECT_TRUE(Hex_String("00ff10aB").get_bytes(bytes));
  EXPECT_EQ((Bytes{0x00, 0xff, 0x10, 0xab}), bytes);
  EXPECT_TRUE(Hex_String("DEADbeef").get_bytes(bytes));
  EXPECT_EQ((Bytes{0xde, 0xad, 0xbe, 0xef}), bytes);

  std::string text;
  EXPECT_TRUE(Hex_String(std::string("4869")).get_bytes(text));
  EXPECT_EQ("Hi", text);
  EXPECT_TRUE(Hex_String("").get_bytes(text));
  EXPECT_TRUE(text.empty());
}

TEST(Hex_String, odd_length_and_foreign_characters_fail_with_one_log_line) {
  au_test::Log_Capture logs;
  Bytes bytes{1, 2, 3};
  EXPECT_FALSE(Hex_String("abc").get_bytes(bytes));
  EXPECT_TRUE(bytes.empty());
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to decode hex text of 3 characters: odd number of digits.\n"))
      << logs.dump();

  EXPECT_FALSE(Hex_String("00g1").get_bytes(bytes));
  EXPECT_FALSE(Hex_String("0x01").get_bytes(bytes));
  EXPECT_FALSE(Hex_String("0 1").get_bytes(bytes));  // odd and foreign: the foreign one wins
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to decode hex text of 4 characters: not a hex digit at 2.\n"))
      << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to decode hex text of 4 characters: not a hex digit at 1.\n"));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to decode hex text of 3 characters: not a hex digit at 1.\n"));
  EXPECT_EQ(4u, logs.records().size()) << logs.dump();
}

TEST(Hex_String, encodes_in_either_case_and_round_trips_every_byte) {
  std::string all;
  for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
  const std::string lower = hex_encode(all);
  EXPECT_EQ(512u, lower.size());
  EXPECT_EQ("000102", lower.substr(0, 6));
  EXPECT_EQ("fdfeff", lower.substr(506));
  EXPECT_EQ("FDFEFF", hex_encode(all, Hex_Case::UPPER).substr(506));
  std::string back;
  EXPECT_TRUE(Hex_String(lower).get_bytes(back));
  EXPECT_EQ(all, back);
  EXPECT_EQ("", hex_encode(nullptr, 4));
}

TEST(Base64, matches_the_rfc_4648_vectors_both_ways) {
  const std::vector<std::pair<std::string, std::string>> vectors = {
      {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},        {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& v : vectors) {
    EXPECT_EQ(v.second, base64_encode(v.first)) << v.first;
    std::string decoded;
    EXPECT_TRUE(base64_decode(v.second, decoded)) << v.second;
    EXPECT_EQ(v.first, decoded);
  }
}

TEST(Base64, long_binary_input_stays_on_one_line_and_round_trips) {
  std::string key;
  for (int i = 0; i < 300; ++i) key.push_back(static_cast<char>((i * 37) & 0xff));
  key[5] = '\0';
  const std::string text = base64_encode(key.data(), key.size());
  EXPECT_EQ(400u, text.size());
  EXPECT_EQ(std::string::npos, text.find('\n'));
  Bytes bytes;
  EXPECT_TRUE(base64_decode(text, bytes));
  EXPECT_EQ(key, std::string(bytes.begin(), bytes.end()));

  // Wrapped text (as MIME writes it) decodes too.
  std::string wrapped = text.substr(0, 76) + "\r\n" + text.substr(76);
  std::string back;
  EXPECT_TRUE(base64_decode(wrapped, back));
  EXPECT_EQ(key, back);
}

TEST(Base64, malformed_text_fails_with_one_log_line_and_no_partial_result) {
  au_test::Log_Capture logs;
  const std::vector<std::pair<std::string, std::string>> bad = {
      {"Zm9v!mFy", "not a Base64 character at 4"},
      {"Zm9vYmFy-", "not a Base64 character at 8"},
      {"Zg", "incomplete group at 2"},
      {"Zm9vY", "incomplete group at 5"},
      {"Zg=a", "data after padding at 3"},
      {"Z===", "too much padding at 3"},
      {std::string("Zm9v\0Zm9v", 9), "not a Base64 character at 4"}};
  for (const auto& b : bad) {
    logs.clear();
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

}  // namespace
