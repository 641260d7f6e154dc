#include "framework/client_io/record_codec.h"

#include <lzo/lzo1x.h>
#include <zstd.h>

#include <cstring>
#include <mutex>
#include <vector>

namespace {

// zstd's fastest regular level: pieces are written while a backup runs.
constexpr int ZSTD_LEVEL = 1;

size_t lzo_bound(size_t n) { return n + n / 16 + 64 + 3; }

struct Zstd_Contexts {
  ZSTD_CCtx* c = ZSTD_createCCtx();
  ZSTD_DCtx* d = ZSTD_createDCtx();
  ~Zstd_Contexts() {
    ZSTD_freeCCtx(c);
    ZSTD_freeDCtx(d);
  }
};

// Contexts are costly to make; each thread keeps its own.
Zstd_Contexts& zstd_contexts() {
  thread_local Zstd_Contexts contexts;
  return contexts;
}

bool lzo_ready() {
  static const bool ok = lzo_init() == LZO_E_OK;
  return ok;
}

size_t zstd_compress(const void* plain, size_t length, std::string& out) {
  out.resize(ZSTD_compressBound(length));
  const size_t n = ZSTD_compressCCtx(zstd_contexts().c, &out[0], out.size(), plain, length, ZSTD_LEVEL);
  return ZSTD_isError(n) ? 0 : n;
}

size_t lzo_compress(const void* plain, size_t length, std::string& out) {
  if (!lzo_ready()) return 0;
  thread_local std::vector<unsigned char> work(LZO1X_1_MEM_COMPRESS);
  out.resize(lzo_bound(length));
  lzo_uint n = out.size();
  const int r = lzo1x_1_compress(static_cast<const unsigned char*>(plain), length,
                                 reinterpret_cast<unsigned char*>(&out[0]), &n, work.data());
  return r == LZO_E_OK ? n : 0;
}

}  // namespace

Compression_Method resolve_compression(Compression_Method m) {
  return m == COMPR_AUTO ? COMPR_ZSTD : m;
}

size_t compress_bound(size_t plain_length) {
  return std::max(ZSTD_compressBound(plain_length), lzo_bound(plain_length));
}

Compression_Method compress_record(Compression_Method method, const void* plain, size_t length,
                                   std::string& out) {
  size_t n = 0;
  switch (resolve_compression(method)) {
    case COMPR_ZSTD: n = zstd_compress(plain, length, out); break;
    case COMPR_LZOP: n = lzo_compress(plain, length, out); break;
    default: break;
  }
  if (n == 0 || n >= length) {
    out.clear();
    return COMPR_NONE;
  }
  out.resize(n);
  return resolve_compression(method);
}

bool decompress_record(Compression_Method method, const void* stored, size_t stored_length,
                       void* out, size_t plain_length) {
  switch (method) {
    case COMPR_NONE:
      if (stored_length != plain_length) return false;
      std::memcpy(out, stored, plain_length);
      return true;
    case COMPR_ZSTD: {
      const size_t n = ZSTD_decompressDCtx(zstd_contexts().d, out, plain_length, stored, stored_length);
      return !ZSTD_isError(n) && n == plain_length;
    }
    case COMPR_LZOP: {
      if (!lzo_ready()) return false;
      lzo_uint n = plain_length;
      const int r = lzo1x_decompress_safe(static_cast<const unsigned char*>(stored), stored_length,
                                          static_cast<unsigned char*>(out), &n, nullptr);
      return r == LZO_E_OK && n == plain_length;
    }
    default:
      return false;
  }
}
