// Debug traces ("Thread %t called ...") cost nothing unless ACE debugging is on
// (ACE::debug(true) or ACE_DEBUG env handling by the agent program).
#pragma once

#include <ace/ACE.h>
#include <ace/Log_Msg.h>

// Usage: AU_DEBUG_TRACE((LM_DEBUG, "Thread %t called Client::rados_shutdown(%@)\n", h));
#define AU_DEBUG_TRACE(X)    \
  do {                       \
    if (ACE::debug()) {      \
      ACE_DEBUG(X);          \
    }                        \
  } while (0)
