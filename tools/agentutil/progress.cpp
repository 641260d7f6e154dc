#include "tools/agentutil/progress.h"

#include <unistd.h>

#include <cstdio>

#include "tools/agentutil/cancel.h"

namespace cli {

Progress::Progress(std::string label) : label_(std::move(label)), tty_(isatty(STDERR_FILENO)) {}

Progress::~Progress() { finish(); }

bool Progress::update(uint64_t done, uint64_t total) {
  if (tty_) {
    const auto now = std::chrono::steady_clock::now();
    if (!drawn_ || now - last_ >= std::chrono::milliseconds(200) || (total && done >= total)) {
      last_ = now;
      drawn_ = true;
      if (total == 0) {  // open-ended work: a running count
        std::fprintf(stderr, "\r%s: %llu", label_.c_str(), static_cast<unsigned long long>(done));
      } else {
        const double pct = 100.0 * static_cast<double>(done) / static_cast<double>(total);
        std::fprintf(stderr, "\r%s: %5.1f%% (%llu/%llu)", label_.c_str(), pct,
                     static_cast<unsigned long long>(done), static_cast<unsigned long long>(total));
      }
      std::fflush(stderr);
    }
  }
  return !cancel_requested();
}

void Progress::finish() {
  if (tty_ && drawn_) {
    std::fputc('\n', stderr);
    drawn_ = false;
  }
}

}  // namespace cli
