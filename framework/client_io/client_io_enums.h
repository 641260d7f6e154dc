// The enumerations of the client-I/O layer and their names in option documents.
#pragma once

#include <string>

#include "framework/base/api.h"

// How the records of a piece are compressed. The numeric codes are stored in pieces
// and passed between agents.
enum Compression_Method {
  COMPR_NONE = 0,
  COMPR_AUTO = 1,  // the library's choice: zstd
  COMPR_LZOP = 2,
  COMPR_ZSTD = 3,
  COMPR_MAX = 4
};

// How the records of a piece are sealed.
enum Encryption_Algorithm {
  ENCR_NONE = 0,
  ENCR_AES_256_GCM = 1,
  ENCR_MAX = 2
};

// "none", "auto", "lzop", "zstd"; null for a value outside the enumeration.
AGENTUTIL_API const char* compression_method_name(Compression_Method m);
// False (and `out` untouched) for any other text.
AGENTUTIL_API bool compression_method_from_name(const std::string& name, Compression_Method& out);

// "none", "aes-256-gcm"; null outside the enumeration.
AGENTUTIL_API const char* encryption_algorithm_name(Encryption_Algorithm a);
AGENTUTIL_API bool encryption_algorithm_from_name(const std::string& name,
                                                  Encryption_Algorithm& out);
