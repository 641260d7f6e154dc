// The restore side of a piece: checks it and hands its image blocks to a sink.
//
// read_blocks_align(io, sink, block_size) takes a piece freshly opened for reading and
//   1. checks the header (magic, version, checksum, and with a key the key check),
//   2. checks the trailer and the index (checksum over header and index, record
//      positions, every record inside the image, offsets rising without overlap),
//   3. reads the records in order, and for each one authenticates it (with a key),
//      decompresses it and compares the XXH3-64 of its plain bytes, and only then
//   4. calls sink(data, length, image offset) once per block: a call never spans two
//      records or crosses a multiple of `block_size` (0: the piece's own block size).
// So a piece that is truncated, was never finished or has any bit changed in its
// header, index or trailer gives nothing to the sink, and a record that fails its
// check stops the walk before any byte of it is handed out.
//
// The reader borrows the connection for the call and runs the sink on the caller's
// thread; it keeps nothing between calls.
//
// Zero records reach the sink as zero-filled blocks, or with a null data pointer when
// `zeros_as_null` is set (for sinks that keep the target sparse).
//
// Each failure is one log line naming the piece, the record and its offsets, e.g.
//   "Invalid piece 'job/p1' at record 3 (image offset 12288, piece offset 8296): checksum mismatch"
// A sink that returns false stops the walk silently: the sink reports its own reasons.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "framework/base/api.h"
#include "framework/client_io/client_io_base.h"
#include "framework/client_io/piece_format.h"

struct AGENTUTIL_API Piece_Layout {
  uint64_t piece_size = 0;
  piece::Header header;
  std::vector<piece::Record> records;
  std::vector<uint64_t> positions;  // piece offset of each record header
};

class AGENTUTIL_API Image_Block_Reader {
 public:
  using Sink = std::function<bool(const void* data, size_t length, off_t offset)>;

  static bool read_blocks_align(Client_IO_Base* io, const Sink& sink, size_t block_size,
                                bool zeros_as_null = false);

  // Steps 1 and 2 only: the checked header and index of a piece freshly opened. The
  // index is not sealed, so with `check_key` false a sealed piece's layout can be read
  // without its key (nothing of its data is).
  static bool read_layout(Client_IO_Base* io, Piece_Layout& layout, bool check_key = true);
};
