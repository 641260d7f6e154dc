// Bandwidth windows of a connection and the throttle that honours them.
//
// A window runs from start_time to end_time, both seconds of the local day; a window
// whose start is after its end wraps over midnight, one whose start equals its end
// covers the whole day. The first window that holds the current second sets the rate;
// a rate of 0, or no window, leaves the transfer unthrottled.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct Rate_Control_Entry {
  uint32_t start_time = 0;
  uint32_t end_time = 0;
  size_t max_bytes_per_second = 0;

  bool covers(uint32_t second_of_day) const;
  bool operator==(const Rate_Control_Entry& o) const {
    return start_time == o.start_time && end_time == o.end_time &&
           max_bytes_per_second == o.max_bytes_per_second;
  }
};

// dest: bytes written to the pool; src: bytes read from it.
struct Rate_Limits {
  std::vector<Rate_Control_Entry> dest_rate_limits;
  std::vector<Rate_Control_Entry> src_rate_limits;

  bool operator==(const Rate_Limits& o) const {
    return dest_rate_limits == o.dest_rate_limits && src_rate_limits == o.src_rate_limits;
  }
};

// Time as the throttle sees it; tests pass their own.
class Rate_Clock {
 public:
  virtual ~Rate_Clock() = default;
  virtual double monotonic_seconds() = 0;
  virtual uint32_t second_of_day() = 0;
  virtual void sleep(double seconds) = 0;

  // The process's real clock (local time of day, steady clock, nanosleep).
  static Rate_Clock& system();
};

// Paces one direction of one connection. Not thread-safe (a connection is used by one
// thread at a time).
class Rate_Limiter {
 public:
  explicit Rate_Limiter(std::vector<Rate_Control_Entry> windows,
                        Rate_Clock& clock = Rate_Clock::system());

  // The rate for `second_of_day`; 0 when unlimited.
  size_t limit_at(uint32_t second_of_day) const;
  // Called after `bytes` went through: sleeps until they fit the current rate.
  void throttle(size_t bytes);

 private:
  std::vector<Rate_Control_Entry> windows_;
  Rate_Clock& clock_;
  size_t rate_ = 0;
  double next_free_ = 0;  // when the bytes sent so far have been paid for
};
