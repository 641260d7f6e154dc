// Text from outside (piece names, identities read from a pool, a WWN from an array's
// reply) as it may go into a log line or onto a terminal: control characters (an escape
// sequence, a line break that would forge a second line) shown as '?', and cut to
// `max_bytes`. Bytes from 0x80 up pass, so that UTF-8 names stay readable.
#pragma once

#include <cstddef>
#include <string>

#include "framework/base/api.h"

AGENTUTIL_API std::string loggable(const std::string& text, std::size_t max_bytes = std::string::npos);
