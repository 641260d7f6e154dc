// Runs the built agentutil binary the way a shell would, for tests of what a person
// sees: the exit status (or the signal that ended it) and stdout and stderr, kept
// apart. Standard input is /dev/null, so nothing is ever asked on a terminal.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace au_test {

struct Run_Result {
  int status = -1;  // -1: did not exit normally
  int signal = 0;   // the signal that ended it, if one did
  std::string out;
  std::string err;
};

inline std::string read_whole(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::size_t line_count(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// True when some line of `text` ends in a blank or a tab: text output that a reader
// cannot see the end of.
inline bool has_trailing_blanks(const std::string& text) {
  for (std::size_t nl = text.find('\n'); nl != std::string::npos; nl = text.find('\n', nl + 1))
    if (nl > 0 && (text[nl - 1] == ' ' || text[nl - 1] == '\t')) return true;
  return false;
}

// "$AGENTUTIL_BUILD_DIR/agentutil"; "" outside ctest.
inline std::string agentutil_path() {
  const char* build_dir = std::getenv("AGENTUTIL_BUILD_DIR");
  return build_dir == nullptr ? std::string() : std::string(build_dir) + "/agentutil";
}

// Runs agentutil with `args`, its output captured in files under `scratch_dir`. The
// global flags are moved ahead of the family, where the tool takes them.
inline Run_Result run_agentutil(std::vector<std::string> args, const std::string& scratch_dir) {
  const std::string program = agentutil_path();
  const std::string out = scratch_dir + "/agentutil.out", err = scratch_dir + "/agentutil.err";
  std::stable_partition(args.begin(), args.end(),
                        [](const std::string& a) { return a == "--json" || a == "--verbose"; });
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
    ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
    ::dup2(::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  Run_Result r;
  int status = 0;
  if (pid > 0 && ::waitpid(pid, &status, 0) == pid) {
    if (WIFEXITED(status)) r.status = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) r.signal = WTERMSIG(status);
  }
  r.out = read_whole(out);
  r.err = read_whole(err);
  return r;
}

}  // namespace au_test
