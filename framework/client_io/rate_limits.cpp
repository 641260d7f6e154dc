#include "framework/client_io/rate_limits.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

bool Rate_Control_Entry::covers(uint32_t s) const {
  if (start_time == end_time) return true;
  if (start_time < end_time) return s >= start_time && s < end_time;
  return s >= start_time || s < end_time;
}

namespace {

class System_Rate_Clock : public Rate_Clock {
 public:
  double monotonic_seconds() override {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
  }
  uint32_t second_of_day() override {
    time_t now = ::time(nullptr);
    struct tm local;
    ::localtime_r(&now, &local);
    return static_cast<uint32_t>(local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec);
  }
  void sleep(double seconds) override {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  }
};

}  // namespace

Rate_Clock& Rate_Clock::system() {
  static System_Rate_Clock clock;
  return clock;
}

Rate_Limiter::Rate_Limiter(std::vector<Rate_Control_Entry> windows, Rate_Clock& clock)
    : windows_(std::move(windows)), clock_(clock) {}

size_t Rate_Limiter::limit_at(uint32_t second_of_day) const {
  for (const Rate_Control_Entry& w : windows_) {
    if (w.covers(second_of_day)) return w.max_bytes_per_second;
  }
  return 0;
}

void Rate_Limiter::throttle(size_t bytes) {
  if (windows_.empty() || bytes == 0) return;
  const size_t rate = limit_at(clock_.second_of_day());
  const double now = clock_.monotonic_seconds();
  if (rate == 0) {
    rate_ = 0;
    return;
  }
  // A new window starts paying from now; debts of an earlier rate do not carry over.
  if (rate != rate_) next_free_ = now;
  rate_ = rate;
  next_free_ = std::max(next_free_, now) + static_cast<double>(bytes) / static_cast<double>(rate);
  if (next_free_ > now) clock_.sleep(next_free_ - now);
}
