#include "framework/client_io/piece_format.h"

#include <xxhash.h>

#include <cstring>

#include "framework/client_io/piece_identity.h"

namespace piece {
namespace {

void put16(unsigned char* p, uint16_t v) {
  for (int i = 0; i < 2; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
void put32(unsigned char* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
uint64_t get(const unsigned char* p, int bytes) {
  uint64_t v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}

}  // namespace

void put64(unsigned char* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
uint64_t get64(const unsigned char* p) { return get(p, 8); }

uint64_t xxh3(const void* data, size_t length) { return XXH3_64bits(data, length); }

void encode(const Header& h, unsigned char (&out)[HEADER_SIZE]) {
  std::memset(out, 0, sizeof out);
  std::memcpy(out, HEADER_MAGIC, 8);
  put16(out + 8, h.version);
  out[10] = h.compression;
  out[11] = h.cipher;
  put32(out + 12, h.block_size);
  put64(out + 16, h.image_size);
  std::memcpy(out + 24, h.salt, sizeof h.salt);
  put32(out + 36, h.version == VERSION_1 ? 0 : h.identity_length);  // reserved in version 1
  std::memcpy(out + 40, h.key_check, sizeof h.key_check);
  put64(out + 56, xxh3(out, 56));
}

bool decode(const unsigned char (&in)[HEADER_SIZE], Header& h, const char*& why) {
  if (std::memcmp(in, HEADER_MAGIC, 8) != 0) return (why = "bad magic, not a piece"), false;
  if (get(in + 56, 8) != xxh3(in, 56)) return (why = "header checksum mismatch"), false;
  h.version = static_cast<uint16_t>(get(in + 8, 2));
  if (h.version != VERSION && h.version != VERSION_1) return (why = "unknown format version"), false;
  h.compression = in[10];
  h.cipher = in[11];
  h.block_size = static_cast<uint32_t>(get(in + 12, 4));
  h.image_size = get(in + 16, 8);
  std::memcpy(h.salt, in + 24, sizeof h.salt);
  h.identity_length = static_cast<uint32_t>(get(in + 36, 4));
  std::memcpy(h.key_check, in + 40, sizeof h.key_check);
  if (h.compression >= COMPR_MAX || h.cipher >= ENCR_MAX) return (why = "unknown method"), false;
  const uint64_t min_block = h.version == VERSION_1 ? 1 : MIN_BLOCK_SIZE;
  if (h.block_size < min_block || h.block_size > MAX_BLOCK_SIZE) return (why = "bad block size"), false;
  if (h.image_size > MAX_IMAGE_SIZE) return (why = "image size larger than 1 PiB"), false;
  if (h.version == VERSION_1) {
    if (h.identity_length != 0) return (why = "reserved bytes set"), false;
  } else if (h.identity_length < MIN_IDENTITY_BYTES || h.identity_length > MAX_IDENTITY_BYTES) {
    return (why = "identity length out of bounds"), false;
  }
  return true;
}

void encode(const Record& r, unsigned char (&out)[RECORD_HEADER_SIZE]) {
  std::memcpy(out, RECORD_MAGIC, 4);
  out[4] = r.flags;
  out[5] = r.compression;
  put16(out + 6, 0);
  put64(out + 8, r.offset);
  put64(out + 16, r.length);
  put64(out + 24, r.stored_length);
  put64(out + 32, r.checksum);
}

bool decode(const unsigned char (&in)[RECORD_HEADER_SIZE], Record& r, const char*& why) {
  if (std::memcmp(in, RECORD_MAGIC, 4) != 0) return (why = "bad record magic"), false;
  r.flags = in[4];
  r.compression = in[5];
  r.offset = get(in + 8, 8);
  r.length = get(in + 16, 8);
  r.stored_length = get(in + 24, 8);
  r.checksum = get(in + 32, 8);
  if (get(in + 6, 2) != 0) return (why = "reserved record bytes set"), false;
  return true;
}

void encode(const Trailer& t, unsigned char (&out)[TRAILER_SIZE]) {
  put64(out, t.record_count);
  put64(out + 8, t.index_position);
  put64(out + 16, t.checksum);
  std::memcpy(out + 24, TRAILER_MAGIC, 8);
}

void encode(const Trailer& t, unsigned char (&out)[TRAILER_SIZE_V2]) {
  put64(out, t.record_count);
  put64(out + 8, t.index_position);
  put64(out + 16, t.checksum);
  std::memcpy(out + 24, t.mac, MAC_SIZE);
  std::memcpy(out + 56, TRAILER_MAGIC_V2, 8);
}

bool decode(const unsigned char (&in)[TRAILER_SIZE_V2], Trailer& t, const char*& why) {
  if (std::memcmp(in + 56, TRAILER_MAGIC_V2, 8) != 0) {
    return (why = "no trailer (the piece is truncated or was never finished)"), false;
  }
  t.record_count = get(in, 8);
  t.index_position = get(in + 8, 8);
  t.checksum = get(in + 16, 8);
  std::memcpy(t.mac, in + 24, MAC_SIZE);
  return true;
}

bool decode(const unsigned char (&in)[TRAILER_SIZE], Trailer& t, const char*& why) {
  if (std::memcmp(in + 24, TRAILER_MAGIC, 8) != 0) {
    return (why = "no trailer (the piece is truncated or was never finished)"), false;
  }
  t.record_count = get(in, 8);
  t.index_position = get(in + 8, 8);
  t.checksum = get(in + 16, 8);
  return true;
}

bool context_digest(const unsigned char (&header)[HEADER_SIZE], const std::string& identity,
                    const std::string& name, unsigned char (&out)[SHA256_LENGTH]) {
  Digest_256 d;
  unsigned char length[4];
  put32(length, static_cast<uint32_t>(name.size()));
  d.update(header, HEADER_SIZE);
  d.update(identity.data(), identity.size());
  d.update(length, sizeof length);
  d.update(name.data(), name.size());
  return d.final(out);
}

bool trailer_mac(const unsigned char (&mac_key)[SHA256_LENGTH],
                 const unsigned char (&context)[SHA256_LENGTH], const std::string& index,
                 const Trailer& t, unsigned char (&out)[MAC_SIZE]) {
  static_assert(MAC_SIZE == SHA256_LENGTH, "the trailer holds one HMAC-SHA256");
  Digest_256 d(&mac_key);
  unsigned char fields[16];
  put64(fields, t.record_count);
  put64(fields + 8, t.index_position);
  d.update(context, SHA256_LENGTH);
  d.update(index.data(), index.size());
  d.update(fields, sizeof fields);
  return d.final(out);
}

}  // namespace piece
