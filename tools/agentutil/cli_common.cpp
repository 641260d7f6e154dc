#include "tools/agentutil/cli_common.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>

#include <iostream>
#include <mutex>

namespace cli {
namespace {

// Keeps the first line of the most recent error-or-worse record.
class Last_Error_Sink : public ACE_Log_Msg_Backend {
 public:
  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& r) override {
    std::string text = r.msg_data();
    if (options().verbose) std::cerr << text << (text.empty() || text.back() != '\n' ? "\n" : "");
    if (r.type() >= LM_ERROR && r.type() != LM_STARTUP && r.type() != LM_SHUTDOWN) {
      const auto nl = text.find('\n');
      std::lock_guard<std::mutex> lock(mutex_);
      last_ = text.substr(0, nl);
    }
    return 0;
  }
  std::string last() {
    std::lock_guard<std::mutex> lock(mutex_);
    return last_;
  }

 private:
  std::mutex mutex_;
  std::string last_;
};

Last_Error_Sink g_sink;
Command_Body g_body;

}  // namespace

Global_Options& options() {
  static Global_Options o;
  return o;
}

void install_log_sink() {
  ACE_Log_Msg::msg_backend(&g_sink);
  ACE_Log_Msg* log = ACE_Log_Msg::instance();
  log->set_flags(ACE_Log_Msg::CUSTOM);
  log->clr_flags(ACE_Log_Msg::STDERR);
}

int fail(const std::string& what) {
  std::string line = "agentutil: " + what;
  const std::string detail = g_sink.last();
  if (!detail.empty() && !options().verbose) line += ": " + detail;
  std::cerr << line << "\n";
  return 1;
}

void set_command(CLI::App* cmd, Command_Body body) {
  cmd->callback([body = std::move(body)] { g_body = body; });
}

int run_selected_command() { return g_body ? g_body() : 0; }

}  // namespace cli
