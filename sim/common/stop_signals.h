// SIGINT/SIGTERM for the standalone simulators: blocked before the server's threads start
// (so none of them takes the signal), then waited for on the main thread.
#pragma once

#include <signal.h>

namespace au_sim {

class Stop_Signals {
 public:
  Stop_Signals() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set_, nullptr);
  }
  void wait() const {
    int signal_number = 0;
    sigwait(&set_, &signal_number);
  }

 private:
  sigset_t set_;
};

}  // namespace au_sim
