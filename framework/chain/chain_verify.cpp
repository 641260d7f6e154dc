#include <ace/Log_Msg.h>

#include "framework/chain/chain_io_internal.h"
#include "framework/chain/chain_restore.h"


bool verify_chain(const Piece_Chain& chain, const Piece_Chain::Connect& connect,
                  const Chain_Callbacks& callbacks, Chain_Totals* totals) {
  if (chain.links().empty()) {
    ACE_ERROR((LM_ERROR, "Cannot verify a chain that holds no piece\n"));
    return false;
  }
  uint64_t all = 0;
  for (const Chain_Link& link : chain.links()) {
    for (const piece::Record& r : link.layout.records) all += r.length;
  }
  chain_io::Progress progress(callbacks, all);
  Chain_Totals t;
  for (const Chain_Link& link : chain.links()) {
    const std::string name = loggable(link.name);
    std::unique_ptr<Client_IO_Base> io = connect ? connect() : nullptr;
    if (!io) {
      ACE_ERROR((LM_ERROR, "Cannot connect to the pool of piece '%s'\n", name.c_str()));
      return false;
    }
    if (!io->open(link.name, Client_IO_Base::OPEN_READ, 0, 0)) {
      ACE_ERROR((LM_ERROR, "Cannot open piece '%s': %s\n", name.c_str(), io->last_error().c_str()));
      return false;
    }
    uint64_t data = 0, zeros = 0;
    bool cancelled = false;
    const bool ok = Image_Block_Reader::read_blocks_align(
        io.get(),
        [&](const void* bytes, size_t length, off_t) {
          (bytes != nullptr ? data : zeros) += length;
          progress.add(length);
          cancelled = progress.cancelled();
          return !cancelled;
        },
        0, true);
    t.piece_bytes_read += io->bytes_read();
    io->close();
    if (cancelled) {
      ACE_ERROR((LM_ERROR, "Cancelled verify of chain '%s' at piece '%s'\n",
                 loggable(chain.newest().name).c_str(), name.c_str()));
      return false;
    }
    if (!ok) return false;  // the reader logged it
    uint64_t want_data = 0, want_zeros = 0;
    for (const piece::Record& r : link.layout.records) {
      ((r.flags & piece::RECORD_DATA) != 0 ? want_data : want_zeros) += r.length;
    }
    if (data != want_data || zeros != want_zeros) {
      ACE_ERROR((LM_ERROR, "Piece '%s' changed since its chain was checked\n", name.c_str()));
      return false;
    }
    t.data_bytes += data;
    t.zero_bytes += zeros;
  }
  t.image_size = chain.image_size();
  t.pieces = chain.links().size();
  if (totals != nullptr) *totals = t;
  return true;
}
