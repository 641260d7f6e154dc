#include "framework/json/writer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "framework/json/reader.h"

using namespace json_spirit;

TEST(Json_Write, compact_and_pretty_text) {
  const Value v(Object{{"b", Array{1, "x", Value()}}, {"a", true}, {"c", 2.5}, {"d", Object()}});
  EXPECT_EQ(write(v), "{\"a\":true,\"b\":[1,\"x\",null],\"c\":2.5,\"d\":{}}");
  EXPECT_EQ(write(v, true),
            "{\n    \"a\": true,\n    \"b\": [\n        1,\n        \"x\",\n        null\n    ],\n"
            "    \"c\": 2.5,\n    \"d\": {}\n}");
  EXPECT_EQ(write(Value("a\"b\\c\n\x01")), "\"a\\\"b\\\\c\\n\\u0001\"");
  EXPECT_EQ(write(Value(1.0)), "1.0");
  EXPECT_EQ(write(Value(UINT64_MAX)), "18446744073709551615");
  EXPECT_EQ(write(Value(INT64_MIN)), "-9223372036854775808");
  EXPECT_EQ(write(Value()), "null");
  EXPECT_EQ(JSON_Dump(v).str(), write(v));
  EXPECT_STREQ(JSON_Dump(Value(Array{1, 2}), true).c_str(), "[\n    1,\n    2\n]");
}

TEST(Json_Write, output_is_always_valid_json) {
  const double inf = std::numeric_limits<double>::infinity();
  const Value v(Array{inf, -inf, std::nan(""), 1.5});
  EXPECT_EQ(write(v), "[null,null,null,1.5]");
  // Bytes that are not UTF-8 become U+FFFD, in values and in member names.
  const Value bad(Object{{"k\xFF", "a\xC0\xAF" "b\xE2\x82"}});
  const std::string text = write(bad);
  EXPECT_EQ(text, "{\"k\xEF\xBF\xBD\":\"a\xEF\xBF\xBD\xEF\xBF\xBD" "b\xEF\xBF\xBD\xEF\xBF\xBD\"}");
  Value back;
  EXPECT_TRUE(read(text, back));
}

TEST(Json_Write, secrets_are_masked_only_for_log_text) {
  const Value login(Object{{"username", "admin"}, {"password", Value::secure("S3cret!")}});
  EXPECT_EQ(write(login), "{\"password\":\"S3cret!\",\"username\":\"admin\"}");
  EXPECT_EQ(JSON_Redacted_Dump(login).str(), "{\"password\":\"******\",\"username\":\"admin\"}");
  EXPECT_EQ(write(login, false, Secrets::masked), JSON_Redacted_Dump(login).str());
  EXPECT_EQ(JSON_Redacted_Dump(Value::secure("")).str(), "\"******\"") << "length is not revealed";
}

TEST(Json_Write, deep_trees_built_in_memory) {
  Value root = Array();
  Value* cur = &root;
  for (int i = 0; i < 200000; ++i) {
    cur->get_array().emplace_back(Array());
    cur = &cur->get_array().back();
  }
  const std::string text = write(root);
  EXPECT_EQ(text.size(), 2u * 200001u);
  EXPECT_EQ(text.substr(0, 3), "[[[");
}
