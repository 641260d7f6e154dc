#include "framework/json/reader.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

#include "framework/json/writer.h"

using namespace json_spirit;

namespace {

// Reads text that must be refused; returns the error text.
std::string refusal(const std::string& text) {
  Value out("untouched");
  std::string error;
  EXPECT_FALSE(read(text, out, error)) << text.substr(0, 80);
  EXPECT_EQ(out, Value("untouched")) << "output written on failure";
  EXPECT_FALSE(error.empty());
  return error;
}

Value parsed(const std::string& text) {
  Value out;
  std::string error;
  EXPECT_TRUE(read(text, out, error)) << text.substr(0, 80) << ": " << error;
  return out;
}

}  // namespace

TEST(Json_Read, refuses_malformed_text_with_a_reason) {
  EXPECT_EQ(refusal(""), "JSON parse error at offset 0: The document is empty.");
  EXPECT_EQ(refusal("{\"a\": [1, 2"), "JSON parse error at offset 11: Missing a comma or ']' after an array element.");
  EXPECT_EQ(refusal("\"abc"), "JSON parse error at offset 4: Missing a closing quotation mark in string.");
  EXPECT_EQ(refusal("{\"a\": 1} x"), "JSON parse error at offset 9: The document root must not be followed by other values.");
  EXPECT_EQ(refusal("\"\\x\""), "JSON parse error at offset 1: Invalid escape character in string.");
  EXPECT_EQ(refusal("\"\\u12G4\""), "JSON parse error at offset 1: Incorrect hex digit after \\u escape in string.");
  EXPECT_EQ(refusal("\"\\uD800\""), "JSON parse error at offset 1: The surrogate pair in string is invalid.");
  EXPECT_EQ(refusal("\"\\uDC00\""), "JSON parse error at offset 8: Invalid encoding in string.");
  EXPECT_EQ(refusal("{\"\\uDFFF\": 1}"), "JSON parse error at offset 9: Invalid encoding in member name.");
  EXPECT_EQ(refusal("\"a\tb\""), "JSON parse error at offset 2: Invalid escape character in string.");
  // Not UTF-8: a stray continuation byte, an overlong form, an encoded surrogate, a cut sequence.
  for (const char* bad : {"\"\x80\"", "\"\xC0\xAF\"", "\"\xED\xA0\x80\"", "\"\xE2\x82\""})
    EXPECT_NE(refusal(bad).find("Invalid encoding in string."), std::string::npos) << bad;
  // A NUL byte would otherwise end the text early and hide the garbage after it.
  EXPECT_EQ(refusal(std::string("1\0garbage", 9)), "JSON parse error at offset 1: NUL byte in text.");
  for (const char* bad : {"[1,]", "{\"a\" 1}", "{'a': 1}", "tru", "nul", "01", "1.", "-", ".5",
                          "1e", "NaN", "Infinity", "[1] // c", "{\"a\":1,}", "+1"})
    refusal(bad);
  Value out;
  EXPECT_FALSE(read(nullptr, 0, out));
}

TEST(Json_Read, refuses_numbers_it_cannot_hold_exactly) {
  EXPECT_EQ(refusal("18446744073709551616"), "JSON parse error at offset 0: Integer does not fit in 64 bits.");
  EXPECT_EQ(refusal("[-9223372036854775809]"), "JSON parse error at offset 1: Integer does not fit in 64 bits.");
  refusal("[1, 123456789012345678901234567890]");
  refusal("1e400");
  refusal("-9.9e308");

  EXPECT_EQ(parsed("18446744073709551615"), Value(UINT64_MAX));
  EXPECT_EQ(parsed("-9223372036854775808"), Value(INT64_MIN));
  EXPECT_EQ(parsed("9223372036854775807"), Value(INT64_MAX));
  EXPECT_EQ(parsed("1e300"), Value(1e300));
  EXPECT_EQ(parsed("[1e19, -18446744073709551616.0]"), Value(Array{1e19, -18446744073709551616.0}));
  EXPECT_EQ(parsed("9007199254740993.0"), Value(9007199254740992.0));
  EXPECT_EQ(parsed("2.2250738585072011e-308"), Value(2.2250738585072011e-308));
  EXPECT_EQ(parsed("123456789012345678901234.5"), Value(123456789012345678901234.5));
  EXPECT_EQ(parsed("1e-400"), Value(0.0));
  EXPECT_EQ(parsed("0.1"), Value(0.1));
  EXPECT_EQ(parsed("-0"), Value(0));
  EXPECT_EQ(parsed("2.5E+3"), Value(2500.0));
  EXPECT_EQ(parsed("1.0").type(), real_type);
}

TEST(Json_Read, refuses_nesting_beyond_the_limit_without_recursion) {
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  EXPECT_EQ(refusal(deep), "JSON parse error at offset 513: Nesting deeper than 512 levels.");
  std::string objects;
  for (int i = 0; i < 100000; ++i) objects += "{\"a\":";
  refusal(objects);

  const std::string ok = std::string(MAX_READ_DEPTH, '[') + std::string(MAX_READ_DEPTH, ']');
  Value v = parsed(ok);
  EXPECT_EQ(v.type(), array_type);
}

TEST(Json_Read, builds_values_of_every_kind) {
  const Value v = parsed(
      " {\"s\": \"caf\\u00e9 \\\"q\\\" \\ud83d\\ude00\", \"n\": null, \"t\": true, \"f\": false,"
      "  \"a\": [1, -2, 3.5, {}, []], \"z\": \"\\u0000\", \"dup\": 1, \"dup\": 2} \n");
  const Object& o = v.get_obj();
  EXPECT_EQ(o.at("s").get_str(), "caf\xC3\xA9 \"q\" \xF0\x9F\x98\x80");
  EXPECT_TRUE(o.at("n").is_null());
  EXPECT_TRUE(o.at("t").get_bool());
  EXPECT_FALSE(o.at("f").get_bool());
  EXPECT_EQ(o.at("a"), Value(Array{1, -2, 3.5, Object(), Array()}));
  EXPECT_EQ(o.at("z").get_str(), std::string(1, '\0'));
  EXPECT_EQ(o.at("dup").get_int(), 2) << "the last repeated member wins";
  EXPECT_EQ(o.size(), 7u);

  // The pointer + length form stops at the length, not at a NUL.
  const char text[] = "[1,2]xxxx";
  Value out;
  ASSERT_TRUE(read(text, 5, out));
  EXPECT_EQ(out, Value(Array{1, 2}));
  EXPECT_FALSE(read(text, 6, out));
}

TEST(Json_Read, repeated_members_keep_the_last_however_they_are_ordered) {
  // Names alike in their first eight bytes, a NUL inside a name, repeats far apart.
  const Value v = parsed(
      "{\"checksum_b\": 1, \"x\": 1, \"checksum_a\": 2, \"ab\\u0000\": 3, \"x\": 2, \"ab\": 4,"
      " \"checksum_b\": 5, \"x\": 3, \"ab\\u0000\": 6}");
  const Object expected{{"ab", 4}, {std::string("ab\0", 3), 6}, {"checksum_a", 2},
                        {"checksum_b", 5}, {"x", 3}};
  EXPECT_EQ(v.get_obj(), expected);
  EXPECT_EQ(parsed("{\"a\": 1, \"a\": 2, \"b\": 3}"), Value(Object{{"a", 2}, {"b", 3}}));
  EXPECT_EQ(parsed("[{\"k\": [1, {\"k\": 2, \"k\": 3}], \"k\": 4}]"),
            Value(Array{Object{{"k", 4}}}));
}

TEST(Json_Read, round_trips_through_the_writer) {
  Object o;
  o["min"] = INT64_MIN;
  o["max"] = INT64_MAX;
  o["umax"] = UINT64_MAX;
  o["real"] = 0.1 + 0.2;
  o["tiny"] = 4.9e-324;
  o["big"] = 1.7976931348623157e308;
  o["escapes"] = std::string("\"\\/\b\f\n\r\t\x01\x1f") + std::string(1, '\0');
  o["unicode"] = "\xE4\xB8\xAD\xE6\x96\x87 \xF0\x9F\x98\x80 \xE2\x80\xA8";
  o["nested"] = Array{Object{{"k", Array{Value(), true, false}}}, Array(), Object()};
  o["\xC3\xA9t\xC3\xA9\n"] = "key with escapes";
  const Value original(o);
  for (bool pretty : {false, true}) {
    Value back;
    std::string error;
    ASSERT_TRUE(read(write(original, pretty), back, error)) << error;
    EXPECT_EQ(back, original) << write(original, pretty);
  }
}
