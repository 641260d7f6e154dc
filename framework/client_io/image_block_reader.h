// The restore side of a piece: checks it and hands its image blocks to a sink.
//
// read_blocks_align(io, sink, block_size) takes a piece freshly opened for reading and
//   1. checks the header (magic, version, checksum, bounds, and with a key the key check)
//      and, in version 2, the identity block after it,
//   2. checks the trailer and the index (checksum over header, identity and index, for a
//      sealed version 2 piece also its HMAC; record positions, every record inside the
//      image, offsets rising without overlap),
//   3. reads the records in order, and for each one authenticates it (with a key),
//      decompresses it and checks it, and only then
//   4. calls sink(data, length, image offset) once per block: a call never spans two
//      records or crosses a multiple of `block_size` (0: the piece's own block size).
// So a piece that is truncated, was never finished or has any bit changed in its
// header, identity, index or trailer gives nothing to the sink, and a record that fails
// its check stops the walk before any byte of it is handed out.
//
// Keys: a connection that seals (cipher and key set) reads only sealed pieces ("the
// connection has a key and the piece is not sealed" otherwise). A sealed version 2 piece is authenticated whole
// under the key: header, identity, every record (zero records through the index), index
// and trailer, bound to the piece's name in the pool (io.path()) and its piece id, so a
// piece altered, cut short by whole records, or copied or renamed over another name is
// refused. An unsealed piece carries XXH3-64 checksums: they catch accidents, not tampering.
//
// Bounds: headers name at most MAX_IMAGE_SIZE bytes of image, version 2 blocks of at
// least 512 bytes, identities at most MAX_IDENTITY_BYTES, indexes at most 256 MiB; so no
// piece makes a reader allocate without limit or loop longer than its image demands.
//
// The reader borrows the connection for the call and runs the sink on the caller's
// thread; it keeps nothing between calls.
//
// Zero records reach the sink as zero-filled blocks, or with a null data pointer when
// `zeros_as_null` is set (for sinks that keep the target sparse). Null zeros are not split
// per block: each call covers up to 1 GiB of a zero record and ends at its end or at a
// multiple of the block size, so a huge stretch of zeros costs a few calls.
//
// Each failure is one log line naming the piece, the record and its offsets, e.g.
//   "Invalid piece 'job/p1' at record 3 (image offset 12288, piece offset 8296): checksum mismatch"
// A sink that returns false stops the walk silently: the sink reports its own reasons.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "framework/base/api.h"
#include "framework/client_io/client_io_base.h"
#include "framework/client_io/piece_format.h"
#include "framework/client_io/piece_identity.h"

struct AGENTUTIL_API Piece_Layout {
  uint64_t piece_size = 0;
  piece::Header header;
  // Version 2: what the piece is and what it builds on. Version 1 pieces name none: only
  // identity.image_size is set (from the header).
  piece::Identity identity;
  std::vector<piece::Record> records;
  std::vector<uint64_t> positions;  // piece offset of each record header
};

class AGENTUTIL_API Image_Block_Reader {
 public:
  using Sink = std::function<bool(const void* data, size_t length, off_t offset)>;

  static bool read_blocks_align(Client_IO_Base* io, const Sink& sink, size_t block_size,
                                bool zeros_as_null = false);

  // Steps 1 and 2 only: the checked header, identity and index of a piece freshly
  // opened. With `check_key` false a sealed piece's layout is read without its key (and
  // without the authentication that needs it: for showing a piece, never for restoring).
  static bool read_layout(Client_IO_Base* io, Piece_Layout& layout, bool check_key = true);
};

// Random access to the records of one piece: the checked layout first (steps 1 and 2,
// with the key when the connection has one), then any data record by its index, each
// authenticated, decompressed and checked before a byte of it is handed out. For restores
// that take only some records of a piece (a chain's older pieces).
//
// Borrows the connection (the piece freshly opened for reading) for its lifetime; one
// thread at a time.
class AGENTUTIL_API Piece_Record_Reader {
 public:
  Piece_Record_Reader();
  ~Piece_Record_Reader();
  Piece_Record_Reader(const Piece_Record_Reader&) = delete;
  Piece_Record_Reader& operator=(const Piece_Record_Reader&) = delete;

  bool open(Client_IO_Base& io);
  const Piece_Layout& layout() const;
  // The plain bytes of data record `i` (layout().records[i].length of them), valid until
  // the next call. False, after one log line, for a zero record or a record that fails
  // its checks.
  bool read_record(size_t i, const void*& plain);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};
