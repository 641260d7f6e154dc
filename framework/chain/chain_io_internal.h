// What restore, consolidation and verify share: a piece of a chain opened for random
// record reads on a connection of its own, and the progress/cancel bookkeeping.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "framework/chain/chain_restore.h"
#include "framework/client_io/image_block_reader.h"
#include "framework/log/loggable.h"

namespace chain_io {

// Opens a connection from `connect` and the piece on it (the same piece as when the chain
// was loaded: its layout is compared), then reads its records by index, keeping the last
// one. Failures log one line.
class Piece_Source {
 public:
  bool open(const Piece_Chain::Connect& connect, const Chain_Link& link);
  // Plain bytes of data record `r`; read from the pool only when not the last one read.
  bool record(size_t r, const unsigned char*& plain);
  // Stored bytes read so far (also after close).
  uint64_t bytes_read() const;
  void close();

 private:
  std::unique_ptr<Client_IO_Base> io_;
  std::unique_ptr<Piece_Record_Reader> reader_;
  size_t held_ = SIZE_MAX;
  const void* plain_ = nullptr;
  uint64_t bytes_read_ = 0;
};

// True when `a` and `b` are the same piece's layout (the pool's piece was not replaced
// between the chain's check and its reading).
bool same_layout(const Piece_Layout& a, const Piece_Layout& b);

class Progress {
 public:
  Progress(const Chain_Callbacks& callbacks, uint64_t total)
      : callbacks_(callbacks), total_(total) {}
  void add(uint64_t bytes) {
    done_ += bytes;
    if (callbacks_.progress) callbacks_.progress(done_, total_);
  }
  bool cancelled() const { return callbacks_.cancel && callbacks_.cancel(); }

 private:
  const Chain_Callbacks& callbacks_;
  uint64_t total_;
  uint64_t done_ = 0;
};

}  // namespace chain_io
