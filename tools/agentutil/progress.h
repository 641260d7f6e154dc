// One-line progress on a terminal (stderr), silent when stderr is not a terminal so
// that scripts and pipes see only the result.
//
// Byte progress shows sizes with their unit, the rate and the time left:
//   restoring vm-1/daily-3:  42.0% 1.7 GiB of 4.0 GiB, 310.2 MiB/s, 8 s left
// Count progress (extents, chunks) shows the numbers as they are.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace cli {

class Progress {
 public:
  enum class Unit { count, bytes };

  explicit Progress(std::string label, Unit unit = Unit::count);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Redraws at most a few times a second (total 0: a running count); returns false once the user asked to cancel,
  // so it can serve directly as a librbd-style progress callback result.
  bool update(uint64_t done, uint64_t total);
  void finish();

 private:
  std::string line(uint64_t done, uint64_t total) const;

  std::string label_;
  Unit unit_;
  bool tty_;
  bool drawn_ = false;
  size_t width_ = 0;  // of the last line drawn, to blank what a shorter one leaves
  std::chrono::steady_clock::time_point start_, last_{};
};

}  // namespace cli
