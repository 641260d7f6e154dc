// Clocks, the median and the comparison line shared by the benchmark programs. Wall time for work that spans processes and
// the cluster; the calling thread's CPU time for in-memory work, which other jobs on a
// busy machine disturb less.
#pragma once

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

namespace bench {

class Wall_Clock {
 public:
  Wall_Clock() : start_(std::chrono::steady_clock::now()) {}
  double ms() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_)
        .count();
  }

 private:
  std::chrono::steady_clock::time_point start_;
};

class Thread_Cpu_Clock {
 public:
  Thread_Cpu_Clock() : start_(now_ns()) {}
  double ms() const { return static_cast<double>(now_ns() - start_) / 1e6; }

 private:
  static long long now_ns() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
  }
  long long start_;
};

// The middle value; the mean of the two middle ones for an even count. 0 when empty.
inline double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t mid = values.size() / 2;
  return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

// Medians of `runs` runs of each side, the order swapped every round so that neither
// side always runs on what the other left (a warmed cache, a busier cluster). Each side
// returns the milliseconds of one run, or a negative number when it failed; then so does
// its median.
struct Paired_Medians {
  double ours = -1;
  double peer = -1;
  bool ok() const { return ours >= 0 && peer >= 0; }
};
inline Paired_Medians alternate(int runs, const std::function<double()>& ours,
                                const std::function<double()>& peer) {
  std::vector<double> a, b;
  for (int i = 0; i < runs; ++i) {
    const double first = (i % 2 ? peer : ours)(), second = (i % 2 ? ours : peer)();
    if (first < 0 || second < 0) return {};
    (i % 2 ? b : a).push_back(first);
    (i % 2 ? a : b).push_back(second);
  }
  return {median(a), median(b)};
}

// The one line format every comparison prints.
inline void print_comparison(const char* name, double ours_ms, double peer_ms) {
  std::printf("%s: ours %.1f ms, peer %.1f ms, ratio %.2f\n", name, ours_ms, peer_ms,
              peer_ms > 0 ? ours_ms / peer_ms : 0.0);
}

}  // namespace bench
