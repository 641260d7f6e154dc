// Compression of one piece record. A record is compressed on its own, so that a
// reader can check and hand out each record without the ones before it.
#pragma once

#include <cstddef>
#include <string>

#include "framework/client_io/client_io_enums.h"

// COMPR_AUTO is the library's default choice: zstd.
Compression_Method resolve_compression(Compression_Method m);

// The most bytes compress() can give for `plain_length` under any method.
size_t compress_bound(size_t plain_length);

// Compresses `plain` with `method` into `out`. Returns the method actually used:
// COMPR_NONE (and `out` left empty) when compression would not make the record
// smaller, so incompressible data is stored as it is.
Compression_Method compress_record(Compression_Method method, const void* plain, size_t length,
                                   std::string& out);

// Exactly `plain_length` bytes into `out` (sized by the caller), or false when the
// stored bytes do not decode to that many.
bool decompress_record(Compression_Method method, const void* stored, size_t stored_length,
                       void* out, size_t plain_length);
