// Marks a descriptor close-on-exec, so that child processes (mount helpers,
// scripts an agent runs) do not inherit it. Logs at LM_ERROR and returns false
// when fcntl refuses (bad descriptor).
#pragma once

#include "framework/base/api.h"

AGENTUTIL_API bool enable_fd_cloexec(int fd);
