#include "tools/agentutil/progress.h"

#include <unistd.h>

#include <cstdio>

#include "tools/agentutil/cancel.h"
#include "tools/agentutil/output.h"

namespace cli {

namespace {

std::string duration_text(double seconds) {
  const auto s = static_cast<uint64_t>(seconds + 0.5);
  if (s < 60) return std::to_string(s) + " s";
  if (s < 3600) return std::to_string(s / 60) + " min " + std::to_string(s % 60) + " s";
  return std::to_string(s / 3600) + " h " + std::to_string(s % 3600 / 60) + " min";
}

}  // namespace

Progress::Progress(std::string label, Unit unit)
    : label_(std::move(label)), unit_(unit), tty_(isatty(STDERR_FILENO)),
      start_(std::chrono::steady_clock::now()) {}

Progress::~Progress() { finish(); }

std::string Progress::line(uint64_t done, uint64_t total) const {
  const bool bytes = unit_ == Unit::bytes;
  const std::string done_text = bytes ? size_text(done) : std::to_string(done);
  if (total == 0) return label_ + ": " + done_text;  // open-ended work: a running count
  char pct[16];
  std::snprintf(pct, sizeof pct, "%5.1f%%", 100.0 * static_cast<double>(done) / static_cast<double>(total));
  std::string text = label_ + ": " + pct + " " + done_text + " of " + (bytes ? size_text(total) : std::to_string(total));
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  if (bytes && seconds >= 1 && done > 0) {
    const double rate = static_cast<double>(done) / seconds;
    text += ", " + size_text(static_cast<uint64_t>(rate)) + "/s";
    if (done < total) text += ", " + duration_text(static_cast<double>(total - done) / rate) + " left";
  }
  return text;
}

bool Progress::update(uint64_t done, uint64_t total) {
  if (tty_) {
    const auto now = std::chrono::steady_clock::now();
    if (!drawn_ || now - last_ >= std::chrono::milliseconds(200) || (total && done >= total)) {
      last_ = now;
      drawn_ = true;
      const std::string text = line(done, total);
      const int pad = width_ > text.size() ? static_cast<int>(width_ - text.size()) : 0;
      std::fprintf(stderr, "\r%s%*s", text.c_str(), pad, "");
      width_ = text.size();
      std::fflush(stderr);
    }
  }
  return !cancel_requested();
}

void Progress::finish() {
  if (tty_ && drawn_) {
    std::fputc('\n', stderr);
    drawn_ = false;
    width_ = 0;
  }
}

}  // namespace cli
