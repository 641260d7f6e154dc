// What every sub-command shares: global flags, the one-line failure report and the
// log sink that turns the library's own log line into that report.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace cli {

struct Global_Options {
  bool json = false;     // machine-readable output for scripts
  bool verbose = false;  // echo every library log line to stderr
};

Global_Options& options();

// Library log lines are kept instead of printed (all of them with --verbose), so a
// failure ends in exactly one line on stderr.
void install_log_sink();

// Prints "agentutil: <what>" plus the library's last error line, if any; returns 1.
int fail(const std::string& what);

// Runs a sub-command body and turns its result into the process exit status.
using Command_Body = std::function<int()>;
void set_command(CLI::App* cmd, Command_Body body);
int run_selected_command();

}  // namespace cli

// Sub-command families, one file each.
void add_activity_commands(CLI::App& app);
void add_sdk_commands(CLI::App& app);
void add_ceph_commands(CLI::App& app);
void add_backupd_commands(CLI::App& app);
void add_mounts_commands(CLI::App& app);
void add_oceanstor_commands(CLI::App& app);
void add_piece_commands(CLI::App& app);
void add_pool_commands(CLI::App& app);
