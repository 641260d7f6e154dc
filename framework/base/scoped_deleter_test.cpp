#include "framework/base/scoped_deleter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "framework/base/malloc_buffer.h"

namespace {

TEST(Scoped_Deleter, runs_once_on_every_way_out_unless_released) {
  int runs = 0;
  {
    auto guard = make_deleter([&] { ++runs; });
    EXPECT_TRUE(guard.armed());
  }
  EXPECT_EQ(1, runs);

  {
    auto guard = make_deleter([&] { ++runs; });
    guard.release();
  }
  EXPECT_EQ(1, runs);

  {
    auto guard = make_deleter([&] { ++runs; });
    guard.run();
    guard.run();
  }
  EXPECT_EQ(2, runs);

  auto early_return = [&](bool leave) {
    auto guard = make_deleter([&] { ++runs; });
    if (leave) return false;
    return true;
  };
  early_return(true);
  early_return(false);
  EXPECT_EQ(4, runs);
}

TEST(Scoped_Deleter, moving_hands_the_duty_over_without_running_twice) {
  int runs = 0;
  {
    auto first = make_deleter([&] { ++runs; });
    {
      auto second = std::move(first);
      EXPECT_FALSE(first.armed());
      EXPECT_TRUE(second.armed());
    }
    EXPECT_EQ(1, runs);
  }
  EXPECT_EQ(1, runs);
}

TEST(malloc_buffer, zero_size_is_null_and_resizing_keeps_the_leading_bytes) {
  malloc_buffer empty(0);
  EXPECT_EQ(nullptr, empty.p_);
  EXPECT_EQ(0u, empty.size());

  malloc_buffer buf(4);
  ASSERT_NE(nullptr, buf.p_);
  EXPECT_EQ(4u, buf.size());
  std::memcpy(buf.data(), "abcd", 4);
  ASSERT_TRUE(buf.resize(1 << 20));
  EXPECT_EQ(size_t{1} << 20, buf.size());
  EXPECT_EQ(0, std::memcmp(buf.data(), "abcd", 4));
  ASSERT_TRUE(buf.resize(2));
  EXPECT_EQ(0, std::memcmp(buf.as<char>(), "ab", 2));
  ASSERT_TRUE(buf.resize(0));
  EXPECT_EQ(nullptr, buf.p_);
  EXPECT_EQ(0u, buf.size());
}

TEST(malloc_buffer, moves_and_releases_ownership) {
  malloc_buffer a(16);
  void* p = a.p_;
  malloc_buffer b(std::move(a));
  EXPECT_EQ(nullptr, a.p_);
  EXPECT_EQ(0u, a.size());
  EXPECT_EQ(p, b.p_);
  EXPECT_EQ(16u, b.size());

  malloc_buffer c(8);
  c = std::move(b);
  EXPECT_EQ(p, c.p_);
  void* mine = c.release();
  EXPECT_EQ(p, mine);
  EXPECT_EQ(nullptr, c.p_);
  std::free(mine);

  c.reset(std::malloc(3), 3);
  EXPECT_EQ(3u, c.size());
}

}  // namespace
