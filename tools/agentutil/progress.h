// One-line progress on a terminal (stderr), silent when stderr is not a terminal so
// that scripts and pipes see only the result.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace cli {

class Progress {
 public:
  explicit Progress(std::string label);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Redraws at most a few times a second (total 0: a running count); returns false once the user asked to cancel,
  // so it can serve directly as a librbd-style progress callback result.
  bool update(uint64_t done, uint64_t total);
  void finish();

 private:
  std::string label_;
  bool tty_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_{};
};

}  // namespace cli
