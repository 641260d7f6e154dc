// backupd-sim: the backup server and storage-pool service simulator as a program,
// for demos and manual checks. Prints its port, serves until SIGINT or SIGTERM.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sim/backupd/backupd_sim.h"

namespace {

bool parse_port(int argc, char** argv, unsigned short& port) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--port") == 0 && i + 1 < argc) {
      char* end = nullptr;
      const long value = std::strtol(argv[++i], &end, 10);
      if (end == argv[i] || *end != '\0' || value < 0 || value > 65535) return false;
      port = static_cast<unsigned short>(value);
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  unsigned short port = 0;
  if (!parse_port(argc, argv, port)) {
    std::fprintf(stderr, "usage: %s [--port N]   (0 or none: any free port)\n", argv[0]);
    return 2;
  }
  // Block the stop signals before the server's threads start, then wait for one here.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  au_sim::Backupd_Sim sim;
  if (!sim.start(port)) {
    std::fprintf(stderr, "backupd-sim: cannot listen on 127.0.0.1:%u\n", port);
    return 1;
  }
  std::printf("%u\n", sim.port());
  std::fflush(stdout);
  int signal_number = 0;
  sigwait(&stop_signals, &signal_number);
  sim.stop();
  return 0;
}
