#include "framework/client_io/image_block_reader.h"

#include <ace/Log_Msg.h>
#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "framework/base/scratch_bytes.h"
#include "framework/client_io/client_io_options.h"
#include "framework/client_io/record_codec.h"
#include "framework/log/check.h"

namespace {

using piece::Record;

std::string at_record(size_t i, const Record& r, uint64_t position) {
  return "record " + std::to_string(i) + " (image offset " + std::to_string(r.offset) +
         ", piece offset " + std::to_string(position) + ")";
}

std::string at(const char* part, uint64_t position) {
  return std::string(part) + " (piece offset " + std::to_string(position) + ")";
}

// One walk over one piece.
class Piece_Walk {
 public:
  explicit Piece_Walk(Client_IO_Base& io) : io_(io) {}

  bool load_layout(Piece_Layout& layout, bool check_key);
  bool stream(const Image_Block_Reader::Sink& sink, uint64_t block_size, bool zeros_as_null);

 private:
  bool invalid(const std::string& where, const std::string& why) {
    ACE_ERROR((LM_ERROR, "Invalid piece '%s' at %s: %s\n", io_.path().c_str(), where.c_str(),
               why.c_str()));
    return false;
  }
  bool unreadable(const std::string& where) {
    ACE_ERROR((LM_ERROR, "Failed to read piece '%s' at %s: %s\n", io_.path().c_str(),
               where.c_str(), io_.last_error().c_str()));
    return false;
  }
  // False only for an I/O error; `short_read` tells that the piece ended first.
  bool read_exact(void* buf, size_t len, const std::string& where, bool& short_read);
  bool pread_exact(void* buf, size_t len, uint64_t offset, const std::string& where);
  bool check_header(bool check_key);
  bool check_trailer_and_index();
  bool check_record(size_t i, const Record& r, uint64_t& expected_position, uint64_t& prev_end);
  bool open_record(size_t i, const Record& r, const unsigned char* stored, const void*& plain);
  bool hand_out(const Record& r, const void* plain, uint64_t block_size, bool zeros_as_null,
                const Image_Block_Reader::Sink& sink);

  Client_IO_Base& io_;
  Piece_Layout* layout_ = nullptr;
  unsigned char header_bytes_[piece::HEADER_SIZE] = {};
  std::unique_ptr<Record_Cipher> cipher_;
  std::string index_;
  std::string opened_, zeros_;
  Scratch_Bytes buffer_, plain_;
};

bool Piece_Walk::read_exact(void* buf, size_t len, const std::string& where, bool& short_read) {
  size_t done = 0;
  short_read = false;
  while (done < len) {
    const ssize_t n = io_.read(static_cast<char*>(buf) + done, len - done);
    if (n < 0) return unreadable(where);
    if (n == 0) {
      short_read = true;
      return true;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

bool Piece_Walk::pread_exact(void* buf, size_t len, uint64_t offset, const std::string& where) {
  const ssize_t n = io_.pread(buf, len, offset);
  if (n < 0) return unreadable(where);
  if (static_cast<size_t>(n) != len) return invalid(where, "the piece ends early");
  return true;
}

bool Piece_Walk::check_header(bool check_key) {
  const std::string where = at("header", 0);
  const int64_t size = io_.size();
  if (size < 0) return unreadable(where);
  layout_->piece_size = static_cast<uint64_t>(size);
  if (layout_->piece_size < piece::HEADER_SIZE + piece::TRAILER_SIZE) {
    return invalid(where, "only " + std::to_string(size) + " bytes, too short for a piece");
  }
  bool short_read = false;
  if (!read_exact(header_bytes_, sizeof header_bytes_, where, short_read)) return false;
  if (short_read) return invalid(where, "the piece ends early");
  const char* why = nullptr;
  piece::Header& h = layout_->header;
  if (!piece::decode(header_bytes_, h, why)) return invalid(where, why);
  if (h.cipher == ENCR_NONE || !check_key) return true;
  const Client_IO_Base::Options* o = io_.connection_options();
  if (o == nullptr || o->key.empty() || o->iv.empty()) {
    return invalid(where, "the piece is encrypted and the connection has no key");
  }
  cipher_.reset(new Record_Cipher);
  std::string nothing;
  if (!cipher_->init(o->key, o->iv, h.salt) ||
      !cipher_->open(piece::KEY_CHECK_RECORD, header_bytes_, piece::Header::KEY_CHECK_AT,
                     h.key_check, sizeof h.key_check, nothing)) {
    return invalid(where, "the key does not open this piece");
  }
  return true;
}

bool Piece_Walk::check_trailer_and_index() {
  const uint64_t size = layout_->piece_size;
  const uint64_t trailer_at = size - piece::TRAILER_SIZE;
  unsigned char trailer_bytes[piece::TRAILER_SIZE];
  if (!pread_exact(trailer_bytes, sizeof trailer_bytes, trailer_at, at("trailer", trailer_at))) {
    return false;
  }
  piece::Trailer t;
  const char* why = nullptr;
  if (!piece::decode(trailer_bytes, t, why)) return invalid(at("trailer", trailer_at), why);
  const uint64_t room = trailer_at - piece::HEADER_SIZE;
  if (t.record_count > room / piece::INDEX_ENTRY_SIZE ||
      t.index_position != trailer_at - t.record_count * piece::INDEX_ENTRY_SIZE) {
    return invalid(at("trailer", trailer_at), "record count and index position do not fit the piece size");
  }
  if (t.record_count * piece::INDEX_ENTRY_SIZE > piece::MAX_INDEX_BYTES) {
    return invalid(at("trailer", trailer_at), "index larger than 256 MiB");
  }
  index_.resize(t.record_count * piece::INDEX_ENTRY_SIZE);
  if (!pread_exact(&index_[0], index_.size(), t.index_position, at("index", t.index_position))) {
    return false;
  }
  XXH3_state_t* s = XXH3_createState();
  XXH3_64bits_reset(s);
  XXH3_64bits_update(s, header_bytes_, sizeof header_bytes_);
  XXH3_64bits_update(s, index_.data(), index_.size());
  const uint64_t sum = XXH3_64bits_digest(s);
  XXH3_freeState(s);
  if (sum != t.checksum) return invalid(at("trailer", trailer_at), "index checksum mismatch");

  layout_->records.resize(t.record_count);
  layout_->positions.resize(t.record_count);
  uint64_t expected = piece::HEADER_SIZE, prev_end = 0;
  for (size_t i = 0; i < t.record_count; ++i) {
    const auto* e = reinterpret_cast<const unsigned char*>(index_.data()) + i * piece::INDEX_ENTRY_SIZE;
    uint64_t position = 0;
    for (int b = 7; b >= 0; --b) position = (position << 8) | e[b];
    unsigned char rec[piece::RECORD_HEADER_SIZE];
    std::memcpy(rec, e + 8, sizeof rec);
    Record& r = layout_->records[i];
    if (!piece::decode(rec, r, why)) return invalid(at_record(i, r, position), why);
    layout_->positions[i] = position;
    if (position != expected) return invalid(at_record(i, r, position), "record is not where the index says");
    if (!check_record(i, r, expected, prev_end)) return false;
  }
  if (expected != t.index_position) return invalid(at("index", t.index_position), "records do not end at the index");
  return true;
}

bool Piece_Walk::check_record(size_t i, const Record& r, uint64_t& expected, uint64_t& prev_end) {
  const std::string where = at_record(i, r, expected);
  const uint64_t tag = layout_->header.cipher == ENCR_AES_256_GCM ? GCM_TAG_LENGTH : 0;
  const uint64_t image_size = layout_->header.image_size;
  if (r.length == 0) return invalid(where, "empty record");
  if (r.offset < prev_end) return invalid(where, "record overlaps the one before");
  if (r.offset > image_size || r.length > image_size - r.offset) {
    return invalid(where, "record outside the image (image size " + std::to_string(image_size) + ")");
  }
  if (r.flags == piece::RECORD_ZEROS) {
    if (r.stored_length != 0 || r.checksum != 0 || r.compression != COMPR_NONE) {
      return invalid(where, "zero record with stored bytes");
    }
  } else if (r.flags == piece::RECORD_DATA) {
    if (r.length > piece::MAX_RECORD_LENGTH) return invalid(where, "data record longer than 4 MiB");
    const bool raw = r.compression == COMPR_NONE;
    if (!raw && r.compression != COMPR_ZSTD && r.compression != COMPR_LZOP) {
      return invalid(where, "unknown record compression");
    }
    if (raw ? r.stored_length != r.length + tag
            : (r.stored_length <= tag || r.stored_length > compress_bound(r.length) + tag)) {
      return invalid(where, "stored length does not fit the record length");
    }
  } else {
    return invalid(where, "unknown record flags");
  }
  prev_end = r.offset + r.length;
  expected += piece::RECORD_HEADER_SIZE + r.stored_length;
  return true;
}

bool Piece_Walk::load_layout(Piece_Layout& layout, bool check_key) {
  layout_ = &layout;
  return check_header(check_key) && check_trailer_and_index();
}

// Authenticates, decompresses and checksums one data record; `plain` then points at
// its checked bytes.
bool Piece_Walk::open_record(size_t i, const Record& r, const unsigned char* stored,
                             const void*& plain) {
  const std::string where = at_record(i, r, layout_->positions[i]);
  size_t length = r.stored_length;
  if (cipher_) {
    unsigned char aad[piece::HEADER_SIZE + piece::RECORD_HEADER_SIZE];
    std::memcpy(aad, header_bytes_, piece::HEADER_SIZE);
    std::memcpy(aad + piece::HEADER_SIZE, stored - piece::RECORD_HEADER_SIZE, piece::RECORD_HEADER_SIZE);
    if (!cipher_->open(i, aad, sizeof aad, stored, length, opened_)) {
      return invalid(where, "authentication failed (altered bytes or another key)");
    }
    stored = reinterpret_cast<const unsigned char*>(opened_.data());
    length = opened_.size();
  }
  plain = stored;
  if (r.compression != COMPR_NONE) {
    char* out = plain_.room(r.length);
    if (!decompress_record(static_cast<Compression_Method>(r.compression), stored, length,
                           out, r.length)) {
      return invalid(where, "stored bytes do not decompress to the record length");
    }
    plain = plain_.data();
  }
  if (piece::xxh3(plain, r.length) != r.checksum) return invalid(where, "checksum mismatch");
  return true;
}

bool Piece_Walk::hand_out(const Record& r, const void* plain, uint64_t block_size,
                          bool zeros_as_null, const Image_Block_Reader::Sink& sink) {
  const bool zeros = r.flags == piece::RECORD_ZEROS;
  if (zeros && !zeros_as_null && zeros_.size() < std::min(block_size, r.length)) {
    zeros_.assign(std::min(block_size, r.length), '\0');
  }
  uint64_t at = r.offset;
  const uint64_t end = r.offset + r.length;
  while (at < end) {
    const uint64_t n = std::min(end, (at / block_size + 1) * block_size) - at;
    const void* data = zeros ? (zeros_as_null ? nullptr : zeros_.data())
                             : static_cast<const char*>(plain) + (at - r.offset);
    if (!sink(data, static_cast<size_t>(n), static_cast<off_t>(at))) return false;
    at += n;
  }
  return true;
}

bool Piece_Walk::stream(const Image_Block_Reader::Sink& sink, uint64_t block_size, bool zeros_as_null) {
  for (size_t i = 0; i < layout_->records.size(); ++i) {
    const Record& r = layout_->records[i];
    const std::string where = at_record(i, r, layout_->positions[i]);
    const size_t size = piece::RECORD_HEADER_SIZE + r.stored_length;
    char* read = buffer_.room(size);
    bool short_read = false;
    if (!read_exact(read, size, where, short_read)) return false;
    if (short_read) return invalid(where, "the piece ends early");
    const auto* bytes = reinterpret_cast<const unsigned char*>(read);
    const auto* entry = reinterpret_cast<const unsigned char*>(index_.data()) + i * piece::INDEX_ENTRY_SIZE + 8;
    if (std::memcmp(bytes, entry, piece::RECORD_HEADER_SIZE) != 0) {
      return invalid(where, "record header differs from the index");
    }
    const void* plain = nullptr;
    if (r.flags == piece::RECORD_DATA && !open_record(i, r, bytes + piece::RECORD_HEADER_SIZE, plain)) {
      return false;
    }
    if (!hand_out(r, plain, block_size, zeros_as_null, sink)) return false;
  }
  return true;
}

}  // namespace

bool Image_Block_Reader::read_layout(Client_IO_Base* io, Piece_Layout& layout, bool check_key) {
  if (AU_IS_NULL(io)) return false;
  Piece_Walk walk(*io);
  return walk.load_layout(layout, check_key);
}

bool Image_Block_Reader::read_blocks_align(Client_IO_Base* io, const Sink& sink, size_t block_size,
                                           bool zeros_as_null) {
  if (AU_IS_NULL(io) || AU_IS_FALSE(sink) || AU_FAILS_IF(block_size, >, piece::MAX_BLOCK_SIZE)) {
    return false;
  }
  Piece_Walk walk(*io);
  Piece_Layout layout;
  if (!walk.load_layout(layout, true)) return false;
  return walk.stream(sink, block_size ? block_size : layout.header.block_size, zeros_as_null);
}
