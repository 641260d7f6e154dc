#include <ace/Log_Msg.h>

#include "framework/chain/chain_io_internal.h"

namespace chain_io {

bool same_layout(const Piece_Layout& a, const Piece_Layout& b) {
  if (a.piece_size != b.piece_size || a.header.version != b.header.version ||
      a.header.image_size != b.header.image_size || a.identity.piece_id != b.identity.piece_id ||
      a.records.size() != b.records.size()) {
    return false;
  }
  for (size_t i = 0; i < a.records.size(); ++i) {
    const piece::Record& x = a.records[i];
    const piece::Record& y = b.records[i];
    if (x.flags != y.flags || x.offset != y.offset || x.length != y.length ||
        x.stored_length != y.stored_length || x.checksum != y.checksum) {
      return false;
    }
  }
  return true;
}

bool Piece_Source::open(const Piece_Chain::Connect& connect, const Chain_Link& link) {
  close();
  const std::string name = loggable(link.name);
  io_ = connect ? connect() : nullptr;
  if (!io_) {
    ACE_ERROR((LM_ERROR, "Cannot connect to the pool of piece '%s'\n", name.c_str()));
    return false;
  }
  if (!io_->open(link.name, Client_IO_Base::OPEN_READ, 0, 0)) {
    ACE_ERROR((LM_ERROR, "Cannot open piece '%s': %s\n", name.c_str(), io_->last_error().c_str()));
    close();
    return false;
  }
  reader_.reset(new Piece_Record_Reader());
  if (!reader_->open(*io_)) {  // logs its failure
    close();
    return false;
  }
  if (!same_layout(reader_->layout(), link.layout)) {
    ACE_ERROR((LM_ERROR, "Piece '%s' changed since its chain was checked\n", name.c_str()));
    close();
    return false;
  }
  return true;
}

bool Piece_Source::record(size_t r, const unsigned char*& plain) {
  if (!reader_) return false;
  if (r != held_) {
    held_ = SIZE_MAX;
    if (!reader_->read_record(r, plain_)) return false;  // logs its failure
    held_ = r;
  }
  plain = static_cast<const unsigned char*>(plain_);
  return true;
}

uint64_t Piece_Source::bytes_read() const { return bytes_read_ + (io_ ? io_->bytes_read() : 0); }

void Piece_Source::close() {
  reader_.reset();
  if (io_) {
    bytes_read_ += io_->bytes_read();
    io_->close();
    io_.reset();
  }
  held_ = SIZE_MAX;
  plain_ = nullptr;
}

}  // namespace chain_io
