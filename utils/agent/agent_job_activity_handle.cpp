#include "utils/agent/agent_job_activity_handle.h"

#include <ace/Log_Msg.h>

#include <cstring>
#include <string>

#include "framework/base/path_conf.h"
#include "framework/log/check.h"

namespace {

bool is_plain_file_name(const char* name) {
  return std::strchr(name, '/') == nullptr && std::strcmp(name, ".") != 0 &&
         std::strcmp(name, "..") != 0;
}

}  // namespace

std::string Agent_Job_Activity_Handle::directory() {
  static const char component_key[] = "$COMPONENT";
  std::string dir = DIRECTORY_TEMPLATE;
  const size_t at = dir.find(component_key);
  if (at != std::string::npos) dir.replace(at, sizeof component_key - 1, "agent");
  return dir;
}

int Agent_Job_Activity_Handle::open(const char* name, int flags) {
  if (AU_IS_NULL_OR_EMPTY(name)) return -1;
  if (!is_plain_file_name(name)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Invalid job activity name '%C': not a plain file name.\n"),
               name));
    return -1;
  }
  const Path_Conf path(directory().c_str(), false, name, DIRECTORY_MODE);
  return open_i(path.c_str(), flags);
}
