// agentutil: the library's command-line face, one sub-command family per subsystem.
#include <CLI/CLI.hpp>

#include "tools/agentutil/cancel.h"
#include "tools/agentutil/cli_common.h"

int main(int argc, char** argv) {
  CLI::App app{"agentutil: Ceph RBD, OceanStor and backup-service helpers for backup agents"};
  app.require_subcommand(1);
  // Every sub-command inherits this: --json, --verbose and a family's connection options
  // may also follow the command (`agentutil ceph pools --conf c.conf --json`).
  app.fallthrough();
  app.add_flag("--json", cli::options().json, "Print results as JSON for scripts");
  app.add_flag("-v,--verbose", cli::options().verbose, "Show every library log line");

  add_activity_commands(app);
  add_sdk_commands(app);
  add_ceph_commands(app);
  add_backupd_commands(app);
  add_mounts_commands(app);
  add_oceanstor_commands(app);
  add_piece_commands(app);
  add_pool_commands(app);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  }
  cli::install_log_sink();
  cli::install_cancel_handler();
  return cli::run_selected_command();
}
