#include "framework/client_io/image_block_reader.h"

#include <ace/Log_Msg.h>
#include <openssl/crypto.h>
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

// Zero records reach a zeros_as_null sink in calls of at most this many bytes.
constexpr uint64_t MAX_NULL_ZEROS_CALL = uint64_t{1} << 30;

// One piece: its checked layout, then its records, read in order (stream) or at will
// (read_record); both check each record the same way (check_record_bytes).
class Piece_Walk {
 public:
  explicit Piece_Walk(Client_IO_Base& io) : io_(io) {}
  ~Piece_Walk() { OPENSSL_cleanse(mac_key_, sizeof mac_key_); }

  bool load_layout(Piece_Layout& layout, bool check_key);
  bool stream(const Image_Block_Reader::Sink& sink, uint64_t block_size, bool zeros_as_null);
  bool read_record(size_t i, const void*& plain);

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
  bool v2() const { return layout_->header.version != piece::VERSION_1; }
  // False only for an I/O error; `short_read` tells that the piece ended first.
  bool read_exact(void* buf, size_t len, const std::string& where, bool& short_read);
  bool pread_exact(void* buf, size_t len, uint64_t offset, const std::string& where);
  bool check_header(bool check_key);
  bool check_identity();
  bool check_trailer_and_index();
  bool check_index_sum(const piece::Trailer& t, const std::string& where);
  bool check_record(size_t i, const Record& r, uint64_t& expected_position, uint64_t& prev_end);
  bool check_record_bytes(size_t i, const unsigned char* bytes, const void*& plain);
  bool open_record(size_t i, const Record& r, const unsigned char* stored, const void*& plain);
  bool hand_out(const Record& r, const void* plain, uint64_t block_size, bool zeros_as_null,
                const Image_Block_Reader::Sink& sink);

  Client_IO_Base& io_;
  Piece_Layout* layout_ = nullptr;
  unsigned char header_bytes_[piece::HEADER_SIZE] = {};
  std::string identity_bytes_;
  std::unique_ptr<Record_Cipher> cipher_;
  bool keyed_ = false;  // sealed version 2, opened with the key
  unsigned char context_[SHA256_LENGTH] = {};
  unsigned char mac_key_[SHA256_LENGTH] = {};
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
  if (!check_key) return true;
  const Client_IO_Base::Options* o = io_.connection_options();
  const bool has_key = o != nullptr && !o->key.empty();
  if (h.cipher == ENCR_NONE) {
    // Otherwise anyone who can write to the pool could slip in a piece of their own. A key
    // with the cipher off writes unsealed pieces itself, so it cannot ask for sealed ones.
    if (has_key && o->cipher != ENCR_NONE) {
      return invalid(where, "the connection has a key and the piece is not sealed");
    }
    return true;
  }
  if (!has_key || o->iv.empty()) {
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

// Version 2: the identity block right after the header (its length bounded by the
// header's decode); a sealed piece's context digest binds it and the piece's name.
bool Piece_Walk::check_identity() {
  piece::Identity& id = layout_->identity;
  if (!v2()) {
    id = piece::Identity();
    id.image_size = layout_->header.image_size;
    return true;
  }
  const std::string where = at("identity", piece::HEADER_SIZE);
  const uint32_t length = layout_->header.identity_length;
  if (layout_->piece_size < piece::HEADER_SIZE + length + piece::TRAILER_SIZE_V2) {
    return invalid(at("header", 0), "only " + std::to_string(layout_->piece_size) +
                                        " bytes, too short for a piece");
  }
  identity_bytes_.resize(length);
  bool short_read = false;
  if (!read_exact(&identity_bytes_[0], length, where, short_read)) return false;
  if (short_read) return invalid(where, "the piece ends early");
  const char* why = nullptr;
  if (!piece::decode_identity(identity_bytes_.data(), length, id, why)) return invalid(where, why);
  if (id.image_size != layout_->header.image_size) {
    return invalid(where, "image size differs from the header's");
  }
  if (cipher_) {
    keyed_ = true;
    if (!cipher_->mac_key(mac_key_) ||
        !piece::context_digest(header_bytes_, identity_bytes_, io_.path(), context_)) {
      return invalid(where, "cannot derive the piece's authentication keys");
    }
  }
  return true;
}

// Version 1: XXH3-64 over header and index. Version 2: XXH3-64 over header, identity and
// index, and when sealed the HMAC, checked whenever the key is at hand.
bool Piece_Walk::check_index_sum(const piece::Trailer& t, const std::string& where) {
  XXH3_state_t* s = XXH3_createState();
  XXH3_64bits_reset(s);
  XXH3_64bits_update(s, header_bytes_, sizeof header_bytes_);
  XXH3_64bits_update(s, identity_bytes_.data(), identity_bytes_.size());
  XXH3_64bits_update(s, index_.data(), index_.size());
  const uint64_t sum = XXH3_64bits_digest(s);
  XXH3_freeState(s);
  if (sum != t.checksum) return invalid(where, "index checksum mismatch");
  if (!v2()) return true;
  const bool sealed = layout_->header.cipher != ENCR_NONE;
  unsigned char mac[piece::MAC_SIZE] = {};
  if (!sealed || !keyed_) {
    // Unsealed: no MAC. Sealed but read without the key: nothing to check it with.
    if (!sealed && CRYPTO_memcmp(mac, t.mac, sizeof mac) != 0) {
      return invalid(where, "an unsealed piece with an authentication code");
    }
    return true;
  }
  if (!piece::trailer_mac(mac_key_, context_, index_, t, mac)) {
    return invalid(where, "cannot compute the authentication code");
  }
  if (CRYPTO_memcmp(mac, t.mac, sizeof mac) != 0) {
    return invalid(where, "authentication failed (altered, or sealed under another name)");
  }
  return true;
}

bool Piece_Walk::check_trailer_and_index() {
  const uint64_t size = layout_->piece_size;
  const size_t trailer_size = v2() ? piece::TRAILER_SIZE_V2 : piece::TRAILER_SIZE;
  const uint64_t data_start = piece::HEADER_SIZE + identity_bytes_.size();  // fits: checked before
  const uint64_t trailer_at = size - trailer_size;
  const std::string where = at("trailer", trailer_at);
  unsigned char trailer_bytes[piece::TRAILER_SIZE_V2];
  if (!pread_exact(trailer_bytes, trailer_size, trailer_at, where)) return false;
  piece::Trailer t;
  const char* why = nullptr;
  const bool decoded =
      v2() ? piece::decode(trailer_bytes, t, why)
           : piece::decode(reinterpret_cast<const unsigned char(&)[piece::TRAILER_SIZE]>(trailer_bytes), t, why);
  if (!decoded) return invalid(where, why);
  const uint64_t room = trailer_at - data_start;
  if (t.record_count > room / piece::INDEX_ENTRY_SIZE ||
      t.index_position != trailer_at - t.record_count * piece::INDEX_ENTRY_SIZE) {
    return invalid(where, "record count and index position do not fit the piece size");
  }
  if (t.record_count * piece::INDEX_ENTRY_SIZE > piece::MAX_INDEX_BYTES) {
    return invalid(where, "index larger than 256 MiB");
  }
  index_.resize(t.record_count * piece::INDEX_ENTRY_SIZE);
  if (!pread_exact(&index_[0], index_.size(), t.index_position, at("index", t.index_position))) {
    return false;
  }
  if (!check_index_sum(t, where)) return false;

  layout_->records.assign(t.record_count, Record());
  layout_->positions.assign(t.record_count, 0);
  uint64_t expected = data_start, prev_end = 0;
  for (size_t i = 0; i < t.record_count; ++i) {
    const auto* e = reinterpret_cast<const unsigned char*>(index_.data()) + i * piece::INDEX_ENTRY_SIZE;
    const uint64_t position = piece::get64(e);
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
  const bool sealed = layout_->header.cipher == ENCR_AES_256_GCM;
  const uint64_t tag = sealed ? GCM_TAG_LENGTH : 0;
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
    if (sealed && v2() && r.checksum != 0) return invalid(where, "a sealed record with a plain checksum");
  } else {
    return invalid(where, "unknown record flags");
  }
  prev_end = r.offset + r.length;
  expected += piece::RECORD_HEADER_SIZE + r.stored_length;
  return true;
}

bool Piece_Walk::load_layout(Piece_Layout& layout, bool check_key) {
  layout_ = &layout;
  return check_header(check_key) && check_identity() && check_trailer_and_index();
}

// Authenticates, decompresses and checksums one data record; `plain` then points at
// its checked bytes.
bool Piece_Walk::open_record(size_t i, const Record& r, const unsigned char* stored,
                             const void*& plain) {
  const std::string where = at_record(i, r, layout_->positions[i]);
  size_t length = r.stored_length;
  if (cipher_) {
    // Version 1 binds the header, version 2 the context digest (header, identity, name).
    unsigned char aad[piece::HEADER_SIZE + piece::RECORD_HEADER_SIZE];
    const size_t lead = keyed_ ? sizeof context_ : piece::HEADER_SIZE;
    std::memcpy(aad, keyed_ ? context_ : header_bytes_, lead);
    std::memcpy(aad + lead, stored - piece::RECORD_HEADER_SIZE, piece::RECORD_HEADER_SIZE);
    if (!cipher_->open(i, aad, lead + piece::RECORD_HEADER_SIZE, stored, length, opened_)) {
      return invalid(where, "authentication failed (altered bytes or another key)");
    }
    stored = reinterpret_cast<const unsigned char*>(opened_.data());
    length = opened_.size();
  }
  const void* bytes = stored;
  if (r.compression != COMPR_NONE) {
    char* out = plain_.room(r.length);
    if (!decompress_record(static_cast<Compression_Method>(r.compression), stored, length,
                           out, r.length)) {
      return invalid(where, "stored bytes do not decompress to the record length");
    }
    bytes = plain_.data();
  }
  if (!keyed_ && piece::xxh3(bytes, r.length) != r.checksum) return invalid(where, "checksum mismatch");
  plain = bytes;  // only once checked
  return true;
}

// `bytes` holds record i as stored: its header, then its stored bytes.
bool Piece_Walk::check_record_bytes(size_t i, const unsigned char* bytes, const void*& plain) {
  const Record& r = layout_->records[i];
  const auto* entry = reinterpret_cast<const unsigned char*>(index_.data()) + i * piece::INDEX_ENTRY_SIZE + 8;
  plain = nullptr;
  if (std::memcmp(bytes, entry, piece::RECORD_HEADER_SIZE) != 0) {
    return invalid(at_record(i, r, layout_->positions[i]), "record header differs from the index");
  }
  return r.flags != piece::RECORD_DATA || open_record(i, r, bytes + piece::RECORD_HEADER_SIZE, plain);
}

bool Piece_Walk::hand_out(const Record& r, const void* plain, uint64_t block_size,
                          bool zeros_as_null, const Image_Block_Reader::Sink& sink) {
  const bool zeros = r.flags == piece::RECORD_ZEROS;
  if (zeros && !zeros_as_null && zeros_.size() < std::min(block_size, r.length)) {
    zeros_.assign(std::min(block_size, r.length), '\0');
  }
  // Null zeros go out in large calls ending on block boundaries, so that a huge zero
  // record costs a few calls, not one per block.
  const uint64_t step = zeros && zeros_as_null ? MAX_NULL_ZEROS_CALL / block_size * block_size : block_size;
  uint64_t at = r.offset;
  const uint64_t end = r.offset + r.length;
  while (at < end) {
    const uint64_t n = std::min(end, (at / block_size) * block_size + step) - at;
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
    const void* plain = nullptr;
    if (!check_record_bytes(i, reinterpret_cast<const unsigned char*>(read), plain)) return false;
    if (!hand_out(r, plain, block_size, zeros_as_null, sink)) return false;
  }
  return true;
}

bool Piece_Walk::read_record(size_t i, const void*& plain) {
  plain = nullptr;
  if (layout_ == nullptr || i >= layout_->records.size()) {
    return invalid("record " + std::to_string(i), "no such record");
  }
  const Record& r = layout_->records[i];
  const std::string where = at_record(i, r, layout_->positions[i]);
  if (r.flags != piece::RECORD_DATA) return invalid(where, "a zero record has no bytes to read");
  const size_t size = piece::RECORD_HEADER_SIZE + r.stored_length;
  char* read = buffer_.room(size);
  return pread_exact(read, size, layout_->positions[i], where) &&
         check_record_bytes(i, reinterpret_cast<const unsigned char*>(read), plain);
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

class Piece_Record_Reader::Impl {
 public:
  Piece_Layout layout;
  std::unique_ptr<Piece_Walk> walk;
};

Piece_Record_Reader::Piece_Record_Reader() : impl_(new Impl) {}
Piece_Record_Reader::~Piece_Record_Reader() = default;

bool Piece_Record_Reader::open(Client_IO_Base& io) {
  impl_->layout = Piece_Layout();
  impl_->walk.reset(new Piece_Walk(io));
  if (impl_->walk->load_layout(impl_->layout, true)) return true;
  impl_->walk.reset();
  return false;
}

const Piece_Layout& Piece_Record_Reader::layout() const { return impl_->layout; }

bool Piece_Record_Reader::read_record(size_t i, const void*& plain) {
  if (!impl_->walk) {
    ACE_ERROR((LM_ERROR, "Failed to read record %s: no piece is open\n", std::to_string(i).c_str()));
    return false;
  }
  return impl_->walk->read_record(i, plain);
}
