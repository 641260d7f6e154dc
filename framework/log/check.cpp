#include "framework/log/check.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

namespace au_log {

bool check_failed(const char* file, int line, const char* what) {
  // Same steps as ACE_ERROR, with the caller's position instead of ours.
  const int saved_errno = ACE_OS::last_error();
  ACE_Log_Msg* log = ACE_Log_Msg::instance();
  log->conditional_set(file, line, -1, saved_errno);
  log->log(LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, %C:\n%?\n"), what);
  ACE_OS::last_error(saved_errno);
  return true;
}

}  // namespace au_log
