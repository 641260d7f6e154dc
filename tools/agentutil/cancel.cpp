#include "tools/agentutil/cancel.h"

#include <csignal>
#include <unistd.h>

#include <atomic>

namespace cli {
namespace {

std::atomic<bool> g_cancelled{false};

extern "C" void on_signal(int sig) {
  if (g_cancelled.exchange(true)) {
    signal(sig, SIG_DFL);
    raise(sig);
    return;
  }
  static const char msg[] = "\ncancelling...\n";
  ssize_t ignored = write(STDERR_FILENO, msg, sizeof msg - 1);
  (void)ignored;
}

}  // namespace

void install_cancel_handler() {
  struct sigaction sa {};
  sa.sa_handler = on_signal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
}

bool cancel_requested() { return g_cancelled.load(std::memory_order_relaxed); }

}  // namespace cli
