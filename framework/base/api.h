// AGENTUTIL_API marks what libagentutil.so exports. The library is built with hidden
// visibility, so everything else stays private to it; the static archives are unaffected.
#pragma once

#define AGENTUTIL_API __attribute__((visibility("default")))
