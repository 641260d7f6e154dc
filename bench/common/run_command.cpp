#include "bench/common/run_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

extern char** environ;

namespace cephbench {

namespace {

// Reads until end of file; false on a read error.
bool drain(int fd, std::string* out) {
  char buf[1 << 16];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (out != nullptr) out->append(buf, static_cast<size_t>(n));
  }
}

// The exit status of `pid`, or -1 when it did not exit normally.
int wait_for(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

pid_t spawn(const std::vector<std::string>& argv, int stdout_fd) {
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, stdout_fd, STDOUT_FILENO);
  pid_t pid = -1;
  const int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    std::fprintf(stderr, "cannot start %s: %s\n", args[0], std::strerror(rc));
    return -1;
  }
  return pid;
}

}  // namespace

bool run_command(const std::vector<std::string>& argv, std::string* out) {
  if (argv.empty()) return false;
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    std::fprintf(stderr, "pipe: %s\n", std::strerror(errno));
    return false;
  }
  const pid_t pid = spawn(argv, fds[1]);
  ::close(fds[1]);
  const bool drained = pid > 0 && drain(fds[0], out);
  ::close(fds[0]);
  if (pid <= 0) return false;
  const int status = wait_for(pid);
  if (status != 0) {
    std::fprintf(stderr, "%s %s exited with status %d\n", argv[0].c_str(),
                 argv.size() > 1 ? argv[1].c_str() : "", status);
    return false;
  }
  return drained;
}

}  // namespace cephbench
