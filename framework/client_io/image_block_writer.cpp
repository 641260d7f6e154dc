#include "framework/client_io/image_block_writer.h"

#include <ace/Log_Msg.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "framework/client_io/record_codec.h"

namespace {

constexpr size_t ZERO_GRAIN = 64u << 10;

bool all_zero(const unsigned char* p, size_t n) {
  return n == 0 || (p[0] == 0 && std::memcmp(p, p + 1, n - 1) == 0);
}

}  // namespace

Image_Block_Writer::Image_Block_Writer(Client_IO_Base& io)
    : Image_Block_Writer(io, io.connection_options() ? *io.connection_options()
                                                     : Client_IO_Base::Options()) {}

Image_Block_Writer::Image_Block_Writer(Client_IO_Base& io, const Client_IO_Base::Options& options)
    : io_(io), options_(options), digest_(XXH3_createState()) {}

Image_Block_Writer::~Image_Block_Writer() {
  XXH3_freeState(digest_);
  OPENSSL_cleanse(mac_key_, sizeof mac_key_);
}

bool Image_Block_Writer::fail(const std::string& why) {
  state_ = State::failed;
  ACE_ERROR((LM_ERROR, "Failed to write piece '%s': %s\n", io_.path().c_str(), why.c_str()));
  return false;
}

bool Image_Block_Writer::put(const void* bytes, size_t length) {
  if (io_.write(bytes, length) != static_cast<ssize_t>(length)) return fail(io_.last_error());
  position_ += length;
  return true;
}

bool Image_Block_Writer::begin(uint64_t image_size, uint32_t block_size) {
  piece::Identity identity;
  identity.image_size = image_size;
  return begin(identity, block_size);
}

bool Image_Block_Writer::begin(const piece::Identity& identity, uint32_t block_size) {
  if (state_ != State::idle) return fail("begin called twice");
  if (block_size < piece::MIN_BLOCK_SIZE || block_size > piece::MAX_BLOCK_SIZE) {
    return fail("block size " + std::to_string(block_size) + " is not in 512 B..64 MiB");
  }
  if (options_.compression_method < 0 || options_.compression_method >= COMPR_MAX) {
    return fail("unknown compression method");
  }
  std::string why;
  if (!piece::check_identity(identity, why)) return fail(why);
  identity_ = identity;
  if (piece::is_zero(identity_.piece_id) &&
      RAND_bytes(identity_.piece_id.data(), static_cast<int>(identity_.piece_id.size())) != 1) {
    return fail("no random bytes for the piece id");
  }
  if (identity_.created == 0) identity_.created = static_cast<uint64_t>(std::time(nullptr));
  const std::string identity_bytes = piece::encode_identity(identity_);
  header_.version = piece::VERSION;
  header_.compression = resolve_compression(options_.compression_method);
  header_.block_size = block_size;
  header_.image_size = identity_.image_size;
  header_.identity_length = static_cast<uint32_t>(identity_bytes.size());
  if (options_.cipher == ENCR_AES_256_GCM) {
    header_.cipher = ENCR_AES_256_GCM;
    cipher_.reset(new Record_Cipher);
    if (RAND_bytes(header_.salt, sizeof header_.salt) != 1) return fail("no random bytes for the salt");
    if (!cipher_->init(options_.key, options_.iv, header_.salt)) {
      return fail("the encryption key or IV is not usable");  // never the secret itself
    }
    piece::encode(header_, header_bytes_);
    std::string tag;
    if (!cipher_->seal(piece::KEY_CHECK_RECORD, header_bytes_, piece::Header::KEY_CHECK_AT,
                       nullptr, 0, tag)) {
      return fail("cannot seal the key check");
    }
    std::memcpy(header_.key_check, tag.data(), GCM_TAG_LENGTH);
  } else if (options_.cipher != ENCR_NONE) {
    return fail("unknown cipher");
  }
  piece::encode(header_, header_bytes_);
  if (cipher_) {
    keyed_ = true;
    if (!cipher_->mac_key(mac_key_) ||
        !piece::context_digest(header_bytes_, identity_bytes, io_.path(), context_)) {
      return fail("cannot derive the piece's authentication keys");
    }
  }
  XXH3_64bits_reset(digest_);
  XXH3_64bits_update(digest_, header_bytes_, sizeof header_bytes_);
  XXH3_64bits_update(digest_, identity_bytes.data(), identity_bytes.size());
  state_ = State::writing;
  return put(header_bytes_, sizeof header_bytes_) && put(identity_bytes.data(), identity_bytes.size());
}

bool Image_Block_Writer::check_extent(uint64_t offset, uint64_t length) {
  if (state_ != State::writing) return state_ == State::failed ? false : fail("not writing");
  if (length == 0) return fail("an extent must not be empty");
  if (offset < next_offset_) {
    return fail("extent at " + std::to_string(offset) + " overlaps or precedes the one before");
  }
  if (offset > header_.image_size || length > header_.image_size - offset) {
    return fail("extent at " + std::to_string(offset) + " runs past the image end");
  }
  next_offset_ = offset + length;
  return true;
}

bool Image_Block_Writer::append_zeros(uint64_t offset, uint64_t length) {
  if (!check_extent(offset, length)) return false;
  if (zeros_length_ > 0 && zeros_offset_ + zeros_length_ == offset) {
    zeros_length_ += length;
    return true;
  }
  if (!flush_zeros()) return false;
  zeros_offset_ = offset;
  zeros_length_ = length;
  return true;
}

bool Image_Block_Writer::append(uint64_t offset, const void* data, size_t length) {
  if (!check_extent(offset, length)) return false;
  const auto* p = static_cast<const unsigned char*>(data);
  size_t pos = 0;
  while (pos < length) {
    const bool zero = all_zero(p + pos, std::min(ZERO_GRAIN, length - pos));
    size_t run = 0;
    while (pos + run < length && run < piece::MAX_RECORD_LENGTH) {
      const size_t n = std::min({ZERO_GRAIN, length - pos - run,
                                 static_cast<size_t>(piece::MAX_RECORD_LENGTH) - run});
      if (all_zero(p + pos + run, n) != zero) break;
      run += n;
    }
    if (zero) {
      if (zeros_length_ > 0 && zeros_offset_ + zeros_length_ == offset + pos) {
        zeros_length_ += run;
      } else {
        if (!flush_zeros()) return false;
        zeros_offset_ = offset + pos;
        zeros_length_ = run;
      }
    } else if (!flush_zeros() || !write_data(offset + pos, p + pos, run)) {
      return false;
    }
    pos += run;
  }
  return true;
}

bool Image_Block_Writer::flush_zeros() {
  if (zeros_length_ == 0) return true;
  piece::Record r;
  r.flags = piece::RECORD_ZEROS;
  r.offset = zeros_offset_;
  r.length = zeros_length_;
  zeros_length_ = 0;
  zero_bytes_ += r.length;
  return write_record(r, nullptr, nullptr);
}

bool Image_Block_Writer::write_data(uint64_t offset, const unsigned char* data, size_t length) {
  piece::Record r;
  r.offset = offset;
  r.length = length;
  // A sealed piece stores no unkeyed digest of plain bytes: GCM's tag stands for it.
  r.checksum = keyed_ ? 0 : piece::xxh3(data, length);
  r.compression = compress_record(static_cast<Compression_Method>(header_.compression), data,
                                  length, packed_);
  const bool packed = r.compression != COMPR_NONE;
  return write_record(r, packed ? &packed_ : nullptr, data);
}

// `stored` holds the compressed bytes, or is null and `raw` the plain ones (or null
// for zeros); with a key the bytes are sealed first.
bool Image_Block_Writer::write_record(piece::Record& r, const std::string* stored, const void* raw) {
  if (index_.size() + piece::INDEX_ENTRY_SIZE > piece::MAX_INDEX_BYTES) {
    return fail("too many records for one piece");  // a reader would refuse the index
  }
  const char* bytes = stored ? stored->data() : static_cast<const char*>(raw);
  size_t length = stored ? stored->size() : (raw ? r.length : 0);
  r.stored_length = length + (cipher_ && r.flags == piece::RECORD_DATA ? GCM_TAG_LENGTH : 0);
  unsigned char rec[piece::RECORD_HEADER_SIZE];
  piece::encode(r, rec);
  if (cipher_ && r.flags == piece::RECORD_DATA) {
    unsigned char aad[piece::RECORD_AAD_SIZE];
    std::memcpy(aad, context_, sizeof context_);
    std::memcpy(aad + sizeof context_, rec, sizeof rec);
    if (!cipher_->seal(records_, aad, sizeof aad, bytes, length, sealed_)) {
      return fail("cannot seal record " + std::to_string(records_));
    }
    bytes = sealed_.data();
    length = sealed_.size();
  }
  unsigned char entry[8];
  for (int i = 0; i < 8; ++i) entry[i] = static_cast<unsigned char>(position_ >> (8 * i));
  index_.append(reinterpret_cast<const char*>(entry), 8);
  index_.append(reinterpret_cast<const char*>(rec), sizeof rec);
  ++records_;
  return put(rec, sizeof rec) && (length == 0 || put(bytes, length));
}

bool Image_Block_Writer::finish() {
  if (state_ != State::writing) return state_ == State::failed ? false : fail("not writing");
  if (!flush_zeros()) return false;
  piece::Trailer t;
  t.record_count = records_;
  t.index_position = position_;
  XXH3_64bits_update(digest_, index_.data(), index_.size());
  t.checksum = XXH3_64bits_digest(digest_);
  if (keyed_ && !piece::trailer_mac(mac_key_, context_, index_, t, t.mac)) {
    return fail("cannot authenticate the index");
  }
  unsigned char trailer[piece::TRAILER_SIZE_V2];
  piece::encode(t, trailer);
  if (!put(index_.data(), index_.size()) || !put(trailer, sizeof trailer)) return false;
  state_ = State::finished;
  return true;
}
