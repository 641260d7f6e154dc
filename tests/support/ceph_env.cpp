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

}  // namespace

std::string ceph_conf_path() { return env_or_empty("AGENTUTIL_CEPH_CONF"); }

bool ceph_required() { return env_or_empty("AGENTUTIL_REQUIRE_CEPH") == "1"; }

std::string ceph_unavailable_reason() {
  const std::string conf = ceph_conf_path();
  if (conf.empty())
    return "AGENTUTIL_CEPH_CONF is not set; start a cluster with "
           "'scripts/ceph-sandbox start DIR' and export the path it prints";
  if (access(conf.c_str(), R_OK) != 0) return "AGENTUTIL_CEPH_CONF names " + conf + ", which cannot be read";
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

bool sandbox_s3(Sandbox_S3& out, const std::string& conf) {
  std::ifstream env(conf.substr(0, conf.rfind('/')) + "/s3.env");
  std::string line;
  while (std::getline(env, line)) {
    const size_t eq = line.find('=');
    if (eq == std::string::npos) continue;
    const std::string k = line.substr(0, eq), v = line.substr(eq + 1);
    if (k == "S3_URL") out.url = v;
    if (k == "S3_ACCESS_KEY") out.access_key = v;
    if (k == "S3_SECRET_KEY") out.secret_key = v;
  }
  return !conf.empty() && !out.url.empty();
}

bool run_ceph_cli(const std::string& args, std::string* out, const std::string& conf_path) {
  if (out) out->clear();
  if (conf_path.empty() || access(conf_path.c_str(), R_OK) != 0) return false;
  // The conf path in single quotes, each quote inside it as '\''.
  std::string conf = "'";
  for (char c : conf_path) conf += c == '\'' ? std::string("'\\''") : std::string(1, c);
  const size_t tool_end = args.find(' ');
  const std::string command = args.substr(0, tool_end) + " -c " + conf + "'" +
                              (tool_end == std::string::npos ? "" : args.substr(tool_end));
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return false;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0)
    if (out) out->append(buffer, n);
  const int status = pclose(pipe);
  const bool ok = status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (!ok) std::cerr << "run_ceph_cli: '" << command << "' failed\n";
  return ok;
}

}  // namespace au_test
