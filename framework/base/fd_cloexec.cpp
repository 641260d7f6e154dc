#include "framework/base/fd_cloexec.h"

#include <ace/Log_Msg.h>
#include <fcntl.h>

bool enable_fd_cloexec(int fd) {
  const int flags = ::fcntl(fd, F_GETFD);
  if (flags != -1 && ((flags & FD_CLOEXEC) || ::fcntl(fd, F_SETFD, flags | FD_CLOEXEC) == 0))
    return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to set close-on-exec on fd %d, errno=%d, %m\n"), fd,
             errno));
  return false;
}
