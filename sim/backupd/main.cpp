// backupd-sim: the backup server and storage-pool service simulator as a program,
// for demos and manual checks. Prints its port, serves until SIGINT or SIGTERM.
//
//   backupd-sim [--port N] [--channel ID]... [--pool NAME=URL]...
//
// Each --channel puts a fake agent behind that channel of "/d2/jr", answering the
// mount helpers' actions. Each --pool describes a plain storage pool (no encryption,
// no S3 keys) at URL, e.g. --pool daily=file:///srv/pool.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/backupd/backupd_sim.h"
#include "sim/backupd/jsonrpc_channel.h"
#include "sim/common/stop_signals.h"

namespace {

struct Arguments {
  unsigned short port = 0;
  std::vector<std::string> channels;
  std::vector<std::pair<std::string, std::string>> pools;  // name, URL
};

// "NAME=URL" with both parts non-empty.
bool parse_pool(const char* text, std::vector<std::pair<std::string, std::string>>& pools) {
  const char* eq = std::strchr(text, '=');
  if (eq == nullptr || eq == text || eq[1] == '\0') return false;
  pools.emplace_back(std::string(text, eq), std::string(eq + 1));
  return true;
}

bool parse_arguments(int argc, char** argv, Arguments& args) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--channel") == 0 && i + 1 < argc && argv[i + 1][0] != '\0') {
      args.channels.emplace_back(argv[++i]);
    } else if (std::strcmp(argv[i], "--pool") == 0 && i + 1 < argc) {
      if (!parse_pool(argv[++i], args.pools)) return false;
    } else if (std::strcmp(argv[i], "--port") == 0 && i + 1 < argc) {
      char* end = nullptr;
      const long value = std::strtol(argv[++i], &end, 10);
      if (end == argv[i] || *end != '\0' || value < 0 || value > 65535) return false;
      args.port = static_cast<unsigned short>(value);
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments args;
  if (!parse_arguments(argc, argv, args)) {
    std::fprintf(stderr,
                 "usage: %s [--port N] [--channel ID]... [--pool NAME=URL]...   "
                 "(port 0 or none: any free one)\n",
                 argv[0]);
    return 2;
  }
  const au_sim::Stop_Signals stop_signals;  // before the server's threads start

  // Declared first so that it outlives the server's threads.
  au_sim::JSON_RPC_Channel channel;
  for (const auto& id : args.channels) channel.add_agent(id, std::make_shared<au_sim::Fake_Agent>());
  au_sim::Backupd_Sim sim;
  channel.attach(sim);
  for (const auto& pool : args.pools) sim.add_pool(pool.first, pool.second);
  if (!sim.start(args.port)) {
    std::fprintf(stderr, "backupd-sim: cannot listen on 127.0.0.1:%u\n", args.port);
    return 1;
  }
  std::printf("%u\n", sim.port());
  std::fflush(stdout);
  stop_signals.wait();
  sim.stop();
  return 0;
}
