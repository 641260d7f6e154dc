#include "bench/common/quiet_cluster.h"

#include "bench/common/busy_image.h"
#include "bench/common/timing.h"

#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

namespace cephbench {
namespace {

std::vector<std::string> daemon_pids(const std::string& conf) {
  const std::string run = conf.substr(0, conf.rfind('/') + 1) + "run";
  std::vector<std::string> pids;
  DIR* d = ::opendir(run.c_str());
  if (d == nullptr) return pids;
  while (dirent* e = ::readdir(d)) {
    const std::string name = e->d_name;
    if (name.size() < 4 || name.compare(name.size() - 4, 4, ".pid") != 0) continue;
    std::string pid;
    std::ifstream(run + "/" + name) >> pid;
    if (!pid.empty()) pids.push_back(pid);
  }
  ::closedir(d);
  return pids;
}

// User and system milliseconds of all of them so far.
double cpu_ms(const std::vector<std::string>& pids) {
  double total = 0;
  for (const std::string& pid : pids) {
    std::string stat;
    std::getline(std::ifstream("/proc/" + pid + "/stat"), stat);
    const size_t name_end = stat.rfind(')');
    if (name_end == std::string::npos) continue;
    std::istringstream fields(stat.substr(name_end + 2));
    std::string skipped;
    for (int i = 0; i < 11; ++i) fields >> skipped;  // state .. cmajflt
    double user = 0, system = 0;
    fields >> user >> system;
    total += (user + system) * 1000.0 / static_cast<double>(::sysconf(_SC_CLK_TCK));
  }
  return total;
}

}  // namespace

void wait_until_quiet(const std::string& conf) {
  const std::vector<std::string> pids = daemon_pids(conf);
  for (int second = 0; second < 60; ++second) {
    const double before = cpu_ms(pids);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    if (cpu_ms(pids) - before < 30) return;
  }
}

double timed_run(const std::string& conf, const std::string& pool, const std::string& target,
                 const std::function<bool()>& before, const std::function<bool()>& f) {
  bool ok = before();
  wait_until_quiet(conf);
  bench::Wall_Clock c;
  ok = ok && f();
  const double ms = c.ms();
  remove_image(conf, pool, target);
  return ok ? ms : -1;
}

}  // namespace cephbench
