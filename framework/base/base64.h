// Base64 (RFC 4648 alphabet, '=' padding, no line breaks) over ACE_Base64.
//
// Decoding is strict where ACE is lenient: ACE stops quietly at the first foreign
// character, so the text is checked first. Accepted: the alphabet, whitespace
// anywhere (wrapped text), at most two '=' only at the end, and a multiple of four
// characters in all. Anything else is logged once at LM_ERROR (length and position
// only, never the text) and reported by the return value; nothing throws.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "framework/base/basic_string_arg.h"

std::string base64_encode(const void* data, size_t size);
inline std::string base64_encode(Basic_String_Arg<char> bytes) {
  return base64_encode(bytes.c_str(), bytes.size());
}

// Replaces `bytes` with the decoded text; on failure leaves it empty.
bool base64_decode(Basic_String_Arg<char> text, std::vector<unsigned char>& bytes);
bool base64_decode(Basic_String_Arg<char> text, std::string& bytes);
