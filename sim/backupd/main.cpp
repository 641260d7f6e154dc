// backupd-sim: the backup server and storage-pool service simulator as a program,
// for demos and manual checks. Prints its port, serves until SIGINT or SIGTERM.
//
//   backupd-sim [--port N] [--channel ID]...
//
// Each --channel puts a fake agent behind that channel of "/d2/jr", answering the
// mount helpers' actions.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "sim/backupd/backupd_sim.h"
#include "sim/backupd/jsonrpc_channel.h"
#include "sim/common/stop_signals.h"

namespace {

bool parse_arguments(int argc, char** argv, unsigned short& port,
                     std::vector<std::string>& channels) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--channel") == 0 && i + 1 < argc && argv[i + 1][0] != '\0') {
      channels.emplace_back(argv[++i]);
    } else if (std::strcmp(argv[i], "--port") == 0 && i + 1 < argc) {
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
  std::vector<std::string> channels;
  if (!parse_arguments(argc, argv, port, channels)) {
    std::fprintf(stderr, "usage: %s [--port N] [--channel ID]...   (port 0 or none: any free one)\n",
                 argv[0]);
    return 2;
  }
  const au_sim::Stop_Signals stop_signals;  // before the server's threads start

  // Declared first so that it outlives the server's threads.
  au_sim::JSON_RPC_Channel channel;
  for (const auto& id : channels) channel.add_agent(id, std::make_shared<au_sim::Fake_Agent>());
  au_sim::Backupd_Sim sim;
  channel.attach(sim);
  if (!sim.start(port)) {
    std::fprintf(stderr, "backupd-sim: cannot listen on 127.0.0.1:%u\n", port);
    return 1;
  }
  std::printf("%u\n", sim.port());
  std::fflush(stdout);
  stop_signals.wait();
  sim.stop();
  return 0;
}
