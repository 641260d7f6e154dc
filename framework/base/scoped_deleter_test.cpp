#include "framework/base/scoped_deleter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "framework/base/malloc_buffer.h"

TEST(Scoped_Deleter, runs_once_at_scope_exit_unless_released_even_when_moved) {
  int runs = 0;
  { auto guard = make_deleter([&] { ++runs; }); }
  EXPECT_EQ(1, runs);
  { make_deleter([&] { ++runs; }).release(); }
  EXPECT_EQ(1, runs);
  {
    auto first = make_deleter([&] { ++runs; });
    auto second = std::move(first);
    second.run();
    EXPECT_FALSE(first.armed() || second.armed());
  }
  EXPECT_EQ(2, runs);
}

TEST(malloc_buffer, zero_size_is_null_and_resizing_or_moving_keeps_the_bytes) {
  EXPECT_EQ(nullptr, malloc_buffer(0).p_);
  malloc_buffer buf(4);
  ASSERT_NE(nullptr, buf.p_);
  std::memcpy(buf.data(), "abcd", 4);
  ASSERT_TRUE(buf.resize(1 << 20));
  EXPECT_EQ(size_t{1} << 20, buf.size());
  malloc_buffer moved(std::move(buf));
  EXPECT_EQ(nullptr, buf.p_);
  EXPECT_EQ(0u, buf.size());
  EXPECT_EQ(0, std::memcmp(moved.as<char>(), "abcd", 4));
  ASSERT_TRUE(moved.resize(0));
  EXPECT_EQ(nullptr, moved.p_);
}
