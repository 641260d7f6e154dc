// Every rejected input logs a line; at fuzzing rates stderr would swamp the run. The
// lines are still formatted (so the sanitizers see the arguments), then dropped.
#pragma once

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>

namespace au_fuzz {

class Dropping_Callback : public ACE_Log_Msg_Callback {
 public:
  void log(ACE_Log_Record&) override {}
};

inline void quiet_log() {
  static Dropping_Callback sink;
  ACE_Log_Msg* log = ACE_LOG_MSG;
  log->msg_callback(&sink);
  log->set_flags(ACE_Log_Msg::MSG_CALLBACK);
  log->clr_flags(ACE_Log_Msg::STDERR);
}

}  // namespace au_fuzz
