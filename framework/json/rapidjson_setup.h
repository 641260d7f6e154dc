// Include RapidJSON through this header only, so every translation unit that
// instantiates its templates sees the same configuration.
#pragma once

// RapidJSON's SIMD whitespace skipping reads whole aligned 16-byte blocks, past the end
// of the text (never past its page). AddressSanitizer reports those reads, so sanitizer
// builds go without SIMD.
#if defined(__SANITIZE_ADDRESS__)
#define AGENTUTIL_NO_RAPIDJSON_SIMD 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define AGENTUTIL_NO_RAPIDJSON_SIMD 1
#endif
#endif

#if !defined(AGENTUTIL_NO_RAPIDJSON_SIMD)
#if defined(__SSE4_2__)
#define RAPIDJSON_SSE42
#elif defined(__SSE2__)
#define RAPIDJSON_SSE2
#endif
#endif

// Texts of 4 GiB or more are refused before RapidJSON sees them (its SizeType is 32 bits).
#include <rapidjson/rapidjson.h>
