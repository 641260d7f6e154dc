#include "framework/client_io/piece_format.h"

#include <xxhash.h>

#include <cstring>

namespace piece {
namespace {

void put16(unsigned char* p, uint16_t v) {
  for (int i = 0; i < 2; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
void put32(unsigned char* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
void put64(unsigned char* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
uint64_t get(const unsigned char* p, int bytes) {
  uint64_t v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}

}  // namespace

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
  // 36..39 reserved, zero
  std::memcpy(out + 40, h.key_check, sizeof h.key_check);
  put64(out + 56, xxh3(out, 56));
}

bool decode(const unsigned char (&in)[HEADER_SIZE], Header& h, const char*& why) {
  if (std::memcmp(in, HEADER_MAGIC, 8) != 0) return (why = "bad magic, not a piece"), false;
  if (get(in + 56, 8) != xxh3(in, 56)) return (why = "header checksum mismatch"), false;
  h.version = static_cast<uint16_t>(get(in + 8, 2));
  if (h.version != VERSION) return (why = "unknown format version"), false;
  h.compression = in[10];
  h.cipher = in[11];
  h.block_size = static_cast<uint32_t>(get(in + 12, 4));
  h.image_size = get(in + 16, 8);
  std::memcpy(h.salt, in + 24, sizeof h.salt);
  std::memcpy(h.key_check, in + 40, sizeof h.key_check);
  if (h.compression >= COMPR_MAX || h.cipher >= ENCR_MAX) return (why = "unknown method"), false;
  if (h.block_size == 0 || h.block_size > MAX_BLOCK_SIZE) return (why = "bad block size"), false;
  if (get(in + 36, 4) != 0) return (why = "reserved bytes set"), false;
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

bool decode(const unsigned char (&in)[TRAILER_SIZE], Trailer& t, const char*& why) {
  if (std::memcmp(in + 24, TRAILER_MAGIC, 8) != 0) {
    return (why = "no trailer (the piece is truncated or was never finished)"), false;
  }
  t.record_count = get(in, 8);
  t.index_position = get(in + 8, 8);
  t.checksum = get(in + 16, 8);
  return true;
}

}  // namespace piece
