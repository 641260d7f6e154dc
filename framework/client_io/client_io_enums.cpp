#include "framework/client_io/client_io_enums.h"

namespace {

const char* const COMPRESSION_NAMES[COMPR_MAX] = {"none", "auto", "lzop", "zstd"};
const char* const ENCRYPTION_NAMES[ENCR_MAX] = {"none", "aes-256-gcm"};

template <class E, int N>
bool from_name(const char* const (&names)[N], const std::string& name, E& out) {
  for (int i = 0; i < N; ++i) {
    if (name == names[i]) {
      out = static_cast<E>(i);
      return true;
    }
  }
  return false;
}

}  // namespace

const char* compression_method_name(Compression_Method m) {
  return (m >= 0 && m < COMPR_MAX) ? COMPRESSION_NAMES[m] : nullptr;
}

bool compression_method_from_name(const std::string& name, Compression_Method& out) {
  return from_name(COMPRESSION_NAMES, name, out);
}

const char* encryption_algorithm_name(Encryption_Algorithm a) {
  return (a >= 0 && a < ENCR_MAX) ? ENCRYPTION_NAMES[a] : nullptr;
}

bool encryption_algorithm_from_name(const std::string& name, Encryption_Algorithm& out) {
  return from_name(ENCRYPTION_NAMES, name, out);
}
