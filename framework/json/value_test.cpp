#include "framework/json/value.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <stdexcept>

using namespace json_spirit;

TEST(Json_Value, integers_keep_their_full_64_bit_range) {
  EXPECT_EQ(Value(INT64_MIN).get_int64(), INT64_MIN);
  EXPECT_EQ(Value(INT64_MAX).get_int64(), INT64_MAX);
  EXPECT_EQ(Value(UINT64_MAX).get_uint64(), UINT64_MAX);
  EXPECT_TRUE(Value(UINT64_MAX).is_uint64());
  EXPECT_FALSE(Value(uint64_t(INT64_MAX)).is_uint64());
  EXPECT_EQ(Value(42u).get_int(), 42);
  EXPECT_EQ(Value(-7).get_int64(), -7);
  EXPECT_EQ(Value(-7).type(), int_type);

  EXPECT_THROW(Value(UINT64_MAX).get_int64(), std::runtime_error);
  EXPECT_THROW(Value(-1).get_uint64(), std::runtime_error);
  EXPECT_THROW(Value(int64_t(INT_MAX) + 1).get_int(), std::runtime_error);
  EXPECT_THROW(Value(int64_t(INT_MIN) - 1).get_int(), std::runtime_error);
  // The same bits, different numbers.
  EXPECT_NE(Value(UINT64_MAX), Value(-1));
  EXPECT_EQ(Value(5).get_real(), 5.0);
}

TEST(Json_Value, getters_throw_on_type_mismatch) {
  const Value s("text");
  EXPECT_THROW(s.get_int(), std::runtime_error);
  EXPECT_THROW(s.get_obj(), std::runtime_error);
  EXPECT_THROW(s.get_array(), std::runtime_error);
  EXPECT_THROW(s.get_bool(), std::runtime_error);
  EXPECT_THROW(Value(1.5).get_int64(), std::runtime_error);
  EXPECT_THROW(Value(true).get_str(), std::runtime_error);
  EXPECT_THROW(Value().get_real(), std::runtime_error);
  try {
    Value(3).get_str();
    FAIL() << "no throw";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "JSON value is int_type, not str_type");
  }
  EXPECT_TRUE(Value(static_cast<const char*>(nullptr)).is_null());
  EXPECT_EQ(Value(0.25f).type(), real_type) << "a float must not turn into an int or a bool";
}

TEST(Json_Value, copies_are_deep_and_moves_leave_null) {
  Object o;
  o["list"] = Array{1, "two", Value::secure("three")};
  Value a(o);
  Value b(a);
  b.get_obj()["list"].get_array().push_back(4);
  EXPECT_EQ(a.get_obj().at("list").get_array().size(), 3u);
  EXPECT_NE(a, b);

  Value c(std::move(b));
  EXPECT_TRUE(b.is_null());
  EXPECT_EQ(c.get_obj().at("list").get_array().size(), 4u);

  // Moving a child over its own parent must not free the child first.
  c = std::move(c.get_obj()["list"]);
  ASSERT_EQ(c.type(), array_type);
  EXPECT_EQ(c.get_array()[1].get_str(), "two");
  Value& alias = c;
  c = alias;  // self-assignment keeps the value
  EXPECT_EQ(c.get_array().size(), 4u);

  Value x(1), y("y");
  swap(x, y);
  EXPECT_EQ(x.get_str(), "y");
  EXPECT_EQ(y.get_int(), 1);
}

TEST(Json_Value, secure_string_reads_as_string_but_compares_by_kind) {
  Value secret = Value::secure("p4ss");
  EXPECT_EQ(secret.type(), secure_str_type);
  EXPECT_EQ(secret.get_str(), "p4ss");
  EXPECT_NE(secret, Value("p4ss"));
  Value copy(secret);
  EXPECT_EQ(copy, secret);
  Value moved(std::move(copy));
  EXPECT_EQ(moved.get_str(), "p4ss");
  EXPECT_TRUE(copy.is_null());
}

TEST(Json_Value, deep_nesting_is_destroyed_without_recursion) {
  Value root = Array();
  Value* cur = &root;
  for (int i = 0; i < 1000000; ++i) {
    Array& a = cur->get_array();
    a.emplace_back(i % 2 ? Value(Array()) : Value(Object{{"k", Array()}}));
    Value& child = a.back();
    cur = child.type() == array_type ? &child : &child.get_obj()["k"];
  }
  root = Value();  // must not overflow the stack
  EXPECT_TRUE(root.is_null());
}
