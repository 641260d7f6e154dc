// agentutil mounts: the client-I/O file systems on this host, as the mount table and
// the clntiofs_i processes see them. A mount without its process, or a process whose
// mount went away, is what an operator is usually looking for, so both show.
#include <iostream>
#include <set>
#include <vector>

#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
#include "utils/agent/tencent/tencent_utils.h"

namespace {

struct Mount_Row {
  std::string mount_dir;
  std::string url;
  int pid = 0;  // 0: no process serves the mount
  bool mounted = false;

  std::string state() const {
    if (pid == 0) return "no process";
    return mounted ? "mounted" : "not mounted";
  }
};

// A URL's password, should one be written into it, stays off the screen. Passwords are
// not always %-escaped in mount URLs, so a '/' or '@' may be part of one: everything from
// the first ':' after the scheme to the last '@' is hidden. A URL whose path holds an '@'
// then shows less than it could, never a password.
std::string without_password(const std::string& url) {
  const auto scheme_end = url.find("://");
  if (scheme_end == std::string::npos) return url;
  const auto authority = scheme_end + 3;
  const auto at = url.rfind('@');
  if (at == std::string::npos || at < authority) return url;
  const auto colon = url.find(':', authority);
  if (colon == std::string::npos || colon > at) return url;
  return url.substr(0, colon + 1) + "<redacted>" + url.substr(at);
}

// Processes first (pid order), then mounts no process serves.
bool collect(std::vector<Mount_Row>& rows) {
  std::vector<Client_IO_FS_Process> processes;
  std::set<std::string> mounted;
  if (!list_client_io_fs_process(processes) || !get_mounted_paths(mounted)) return false;
  std::set<std::string> served;
  for (const auto& p : processes) {
    rows.push_back(Mount_Row{p.mount_dir, without_password(p.url), p.pid, p.mounted});
    served.insert(p.mount_dir);
  }
  for (const auto& dir : mounted)
    if (served.count(dir) == 0) rows.push_back(Mount_Row{dir, "", 0, true});
  return true;
}

void print_table(const std::vector<Mount_Row>& rows) {
  if (rows.empty()) {
    std::cout << "no client-I/O mounts\n";
    return;
  }
  cli::Table table({"MOUNT DIR", "URL", "PID", "STATE"});
  for (const auto& r : rows) table.add({r.mount_dir, r.url, r.pid == 0 ? "" : std::to_string(r.pid), r.state()});
  table.print(std::cout);
}

json_spirit::Value to_json(const std::vector<Mount_Row>& rows) {
  json_spirit::Array out;
  for (const auto& r : rows)
    out.emplace_back(json_spirit::Object{
        {"mount_dir", r.mount_dir},
        {"url", r.url.empty() ? json_spirit::Value() : json_spirit::Value(r.url)},
        {"pid", r.pid == 0 ? json_spirit::Value() : json_spirit::Value(r.pid)},
        {"mounted", r.mounted}});
  return json_spirit::Object{{"mounts", out}};
}

int list_mounts() {
  std::vector<Mount_Row> rows;
  if (!collect(rows)) return cli::fail("cannot list the client-I/O mounts");
  if (cli::options().json)
    cli::print_json(to_json(rows));
  else
    print_table(rows);
  return 0;
}

}  // namespace

void add_mounts_commands(CLI::App& app) {
  CLI::App* mounts = app.add_subcommand("mounts", "Client-I/O mounts and the processes serving them");
  cli::set_command(mounts, [] { return list_mounts(); });
}
