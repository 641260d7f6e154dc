#include "tests/support/ceph_env.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

namespace au_test {

namespace {

std::string env_or_empty(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

// Single quotes keep every byte literal for /bin/sh; a quote inside becomes '\''.
std::string shell_quote(const std::string& s) {
  std::string quoted = "'";
  for (char c : s) quoted += (c == '\'') ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

bool is_ceph_tool(const std::string& tool) {
  return tool == "ceph" || tool == "rbd" || tool == "rados";
}

// Exit status 0 of a pclose() result.
bool exited_cleanly(int status) {
  return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

std::string ceph_conf_path() { return env_or_empty("AGENTUTIL_CEPH_CONF"); }

bool ceph_required() { return env_or_empty("AGENTUTIL_REQUIRE_CEPH") == "1"; }

std::string ceph_unavailable_reason() {
  const std::string conf = ceph_conf_path();
  if (conf.empty())
    return "AGENTUTIL_CEPH_CONF is not set; start a cluster with "
           "'scripts/ceph-sandbox start DIR' and export the path it prints";
  if (access(conf.c_str(), R_OK) != 0)
    return "AGENTUTIL_CEPH_CONF names " + conf + ", which cannot be read";
  return "";
}

std::string ceph_conf_text() {
  if (!ceph_unavailable_reason().empty()) return "";
  std::ifstream in(ceph_conf_path());
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string unique_ceph_name(const std::string& prefix) {
  static std::atomic<unsigned> counter{0};
  return prefix + "-" + std::to_string(getpid()) + "-" + std::to_string(++counter);
}

bool run_ceph_cli(const std::string& args, std::string* out) {
  if (out) out->clear();
  const std::string reason = ceph_unavailable_reason();
  if (!reason.empty()) {
    std::cerr << "run_ceph_cli: " << reason << "\n";
    return false;
  }
  const size_t tool_end = args.find(' ');
  const std::string tool = args.substr(0, tool_end);
  if (!is_ceph_tool(tool)) {
    std::cerr << "run_ceph_cli: '" << args << "' does not start with ceph, rbd or rados\n";
    return false;
  }
  const std::string command = tool + " -c " + shell_quote(ceph_conf_path()) +
                              (tool_end == std::string::npos ? "" : args.substr(tool_end));

  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) {
    std::cerr << "run_ceph_cli: cannot run '" << command << "'\n";
    return false;
  }
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0)
    if (out) out->append(buffer, n);
  const bool ok = exited_cleanly(pclose(pipe));
  if (!ok) std::cerr << "run_ceph_cli: '" << command << "' failed\n";
  return ok;
}

}  // namespace au_test
