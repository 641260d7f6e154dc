// Changed-extent extraction against its peers, each measured in this one run:
//  - get_changed_blocks from s1 to s2 of a scratch 1 GiB image against `rbd diff` on the
//    same snapshots, on the cluster of $AGENTUTIL_CEPH_CONF (scripts/run-benches starts a
//    sandbox one when unset);
//  - the sort-and-merge of 10 million synthetic extents against a bare std::sort.
// Prints one line per comparison, "name: ours X, peer Y, ratio Z", with a note beneath on
// what was timed. Exit status 0 only when every line was printed.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/ceph_diff/changed_blocks_vs_rbd.h"
#include "bench/ceph_diff/merge_vs_sort.h"

namespace {

volatile std::sig_atomic_t stop_signal = 0;

void note_stop(int sig) { stop_signal = sig; }

// Ctrl-C or a kill ends the run at the next step, after the scratch image is removed.
void catch_stop_signals() {
  struct sigaction action {};
  action.sa_handler = note_stop;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &action, nullptr);
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  catch_stop_signals();
  const ceph::Cancel_Callback cancelled = [] { return stop_signal != 0; };

  int status = 0;
  const char* conf = std::getenv("AGENTUTIL_CEPH_CONF");
  if (conf == nullptr || *conf == '\0') {
    std::fprintf(stderr, "ceph changed blocks vs rbd diff: not measured, AGENTUTIL_CEPH_CONF "
                         "is not set (scripts/run-benches starts a sandbox cluster)\n");
    status = 1;
  } else {
    status |= cephbench::compare_changed_blocks_with_rbd_diff(conf, cancelled);
  }
  if (!cancelled()) status |= cephbench::compare_merge_with_sort(cancelled);
  return status;
}
