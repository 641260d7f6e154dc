// The backup side of a piece: extents in, piece bytes out (docs/piece-format.md).
//
//   io.open(name, Client_IO_Base::OPEN_WRITE, 0, 0);
//   Image_Block_Writer w(io);                 // compression and key from io's options
//   w.begin(identity, block_size);           // or begin(image_size, block_size)
//   w.append(offset, data, length) ...        // extents by rising offset, no overlap
//   w.append_zeros(offset, length) ...
//   w.finish() && io.close();                 // the piece exists only after both
//
// Data is split into records of at most 4 MiB; stretches of zeros inside appended data
// (64 KiB grains) become zero records, which carry no bytes, and neighbouring zero
// records merge. Each failure logs one line and returns false; the writer then refuses
// everything, and the caller drops the piece by not closing (or by a failed close).
//
// Pieces are written in format version 2. With a key the piece is sealed under its name
// in the pool (io.path() at begin()): renamed or copied over another name it is refused.
//
// The writer borrows `io` (which must outlive it) and is used from one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "framework/base/api.h"
#include "framework/client_io/client_io_options.h"
#include "framework/client_io/piece_format.h"
#include "framework/client_io/piece_identity.h"
#include "framework/client_io/record_cipher.h"

struct XXH3_state_s;

class AGENTUTIL_API Image_Block_Writer {
 public:
  explicit Image_Block_Writer(Client_IO_Base& io);
  // Compression and encryption from `options` instead of the connection's.
  Image_Block_Writer(Client_IO_Base& io, const Client_IO_Base::Options& options);
  ~Image_Block_Writer();

  // A version 2 piece of `identity` (the writer draws its piece id when left zero; the
  // image size is identity.image_size).
  // Block sizes are 512 B to 64 MiB; identity texts at most MAX_IDENTITY_TEXT bytes; image
  // sizes at most MAX_IMAGE_SIZE. `created` left 0 is set to now.
  bool begin(const piece::Identity& identity, uint32_t block_size);
  // A version 2 piece that names no source: a full piece of an image of `image_size`.
  bool begin(uint64_t image_size, uint32_t block_size);
  bool append(uint64_t offset, const void* data, size_t length);
  bool append_zeros(uint64_t offset, uint64_t length);
  bool finish();

  // The identity written (piece id drawn), once begin() succeeded.
  const piece::Identity& identity() const { return identity_; }
  uint64_t records() const { return records_; }
  // Piece bytes written so far.
  uint64_t piece_bytes() const { return position_; }
  // Image bytes stored as zero records so far.
  uint64_t zero_bytes() const { return zero_bytes_; }

 private:
  enum class State { idle, writing, finished, failed };

  bool fail(const std::string& why);
  bool check_extent(uint64_t offset, uint64_t length);
  bool flush_zeros();
  bool write_data(uint64_t offset, const unsigned char* data, size_t length);
  bool write_record(piece::Record& r, const std::string* stored, const void* raw);
  bool put(const void* bytes, size_t length);

  Client_IO_Base& io_;
  Client_IO_Base::Options options_;
  State state_ = State::idle;
  piece::Header header_;
  piece::Identity identity_;
  unsigned char header_bytes_[piece::HEADER_SIZE] = {};
  std::unique_ptr<Record_Cipher> cipher_;
  XXH3_state_s* digest_ = nullptr;  // header, identity and index, for the trailer
  bool keyed_ = false;  // sealed: records and trailer authenticated under the key
  unsigned char context_[SHA256_LENGTH] = {};  // sealed: header, identity and piece name
  unsigned char mac_key_[SHA256_LENGTH] = {};
  std::string index_;
  std::string packed_, sealed_;     // scratch, reused per record
  uint64_t next_offset_ = 0;        // extents must not start below this
  uint64_t zeros_offset_ = 0, zeros_length_ = 0;  // pending zero record
  uint64_t position_ = 0;
  uint64_t records_ = 0;
  uint64_t zero_bytes_ = 0;
};
