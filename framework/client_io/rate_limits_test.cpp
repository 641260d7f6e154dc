#include "framework/client_io/rate_limits.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"
#include "framework/client_io/client_io_ex.h"

namespace {

// Time stands still unless the throttle sleeps.
class Manual_Clock : public Rate_Clock {
 public:
  double monotonic_seconds() override { return now; }
  uint32_t second_of_day() override { return day_start + static_cast<uint32_t>(now); }
  void sleep(double s) override {
    now += s;
    slept += s;
  }
  uint32_t day_start = 0;
  double now = 0;
  double slept = 0;
};

TEST(Rate_Limits, the_first_window_holding_the_second_sets_the_rate) {
  const Rate_Limiter limiter({{9 * 3600, 17 * 3600, 1000},   // office hours
                              {22 * 3600, 6 * 3600, 5000},   // over midnight
                              {0, 0, 7}});                    // the rest of the day
  const struct {
    uint32_t second;
    size_t rate;
  } cases[] = {{9 * 3600, 1000},     {17 * 3600 - 1, 1000}, {17 * 3600, 7},
               {23 * 3600, 5000},    {3600, 5000},          {6 * 3600, 7},
               {22 * 3600 - 1, 7},   {22 * 3600, 5000}};
  for (const auto& c : cases) EXPECT_EQ(limiter.limit_at(c.second), c.rate) << c.second;
  EXPECT_EQ(Rate_Limiter({}).limit_at(0), 0u);
}

TEST(Rate_Limits, throttle_paces_bytes_to_the_window_rate_and_not_outside_it) {
  Manual_Clock clock;
  clock.day_start = 10 * 3600;
  Rate_Limiter limiter({{9 * 3600, 11 * 3600, 1000}, {11 * 3600, 12 * 3600, 0}}, clock);
  for (int i = 0; i < 5; ++i) limiter.throttle(1000);
  EXPECT_DOUBLE_EQ(clock.slept, 5.0);

  // Idle time is not credit beyond the present: a burst after a pause is paced again.
  clock.now += 100;
  limiter.throttle(2000);
  EXPECT_DOUBLE_EQ(clock.slept, 7.0);

  // In an unlimited window nothing waits.
  clock.now = 3600 + 10;
  clock.slept = 0;
  limiter.throttle(1 << 30);
  EXPECT_EQ(clock.slept, 0.0);
}

// Writes go to the pool (destination windows), reads come from it (source windows).
TEST(Rate_Limits, a_connection_paces_writes_and_reads_by_their_own_windows) {
  au_test::Temp_Dir dir;
  Manual_Clock clock;
  Client_IO_Base::Options o;
  o.rate_limits.dest_rate_limits = {{0, 0, 1000}};
  o.rate_limits.src_rate_limits = {{0, 0, 250}};
  Client_IO_Ex io;
  ASSERT_TRUE(io.connect("file://" + dir.path(), o, clock)) << io.last_error();
  const std::string data(3000, 'x');
  ASSERT_TRUE(io.open("p", Client_IO_Base::OPEN_WRITE, 0, 0));
  ASSERT_EQ(io.write(data.data(), data.size()), 3000);
  ASSERT_TRUE(io.close());
  EXPECT_DOUBLE_EQ(clock.slept, 3.0);
  ASSERT_TRUE(io.open("p", Client_IO_Base::OPEN_READ, 0, 0));
  char buf[1000];
  ASSERT_EQ(io.read(buf, sizeof buf), 1000);
  EXPECT_DOUBLE_EQ(clock.slept, 7.0);
}

}  // namespace
