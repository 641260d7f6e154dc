// Include RapidJSON through this header only, so every translation unit that
// instantiates its templates sees the same configuration.
#pragma once

#if defined(__SSE4_2__)
#define RAPIDJSON_SSE42
#elif defined(__SSE2__)
#define RAPIDJSON_SSE2
#endif
// Sizes beyond 4 GiB are refused before RapidJSON sees them (its SizeType is 32 bits).
#include <rapidjson/rapidjson.h>
