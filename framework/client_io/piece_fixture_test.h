// Image-like extents and piece round trips shared by the directory and S3 pool tests.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/image_block_reader.h"
#include "framework/client_io/image_block_writer.h"
#include "framework/client_io/record_cipher.h"

namespace piece_test {

constexpr uint64_t MiB = 1 << 20;
const char* const KEY = "8f1e2d3c4b5a69788796a5b4c3d2e1f000112233445566778899aabbccddeeff";
const char* const IV = "a1b2c3d4e5f60718293a4b5c";

inline std::string random_bytes(size_t n, unsigned seed) {
  std::mt19937_64 g(seed);
  std::string s(n, '\0');
  for (size_t i = 0; i + 8 <= n; i += 8) {
    const uint64_t v = g();
    std::memcpy(&s[i], &v, 8);
  }
  return s;
}

inline std::string text_bytes(size_t n) {
  std::string s;
  for (int i = 0; s.size() < n; ++i) s += "block " + std::to_string(i % 977) + " of a compressible log line\n";
  s.resize(n);
  return s;
}

struct Extent {
  uint64_t offset;
  std::string data;  // empty: an explicit zero extent of `zeros` bytes
  uint64_t zeros = 0;
};

// Random, text, zeros inside data, an odd unaligned extent, explicit zeros, and one
// mixed extent longer than a record; gaps between them stay unwritten.
inline std::vector<Extent> image_extents() {
  std::string mixed = text_bytes(2 * MiB) + random_bytes(2 * MiB + 4096, 7);
  return {{0, random_bytes(3 * MiB, 1)},
          {4 * MiB, text_bytes(MiB / 2)},
          {5 * MiB, std::string(MiB, '\0')},
          {6 * MiB + 100, random_bytes(5000, 3)},
          {7 * MiB, "", MiB},
          {8 * MiB, mixed}};
}
constexpr uint64_t IMAGE_SIZE = 13 * MiB;

inline Client_IO_Base::Options options_for(Compression_Method m, bool sealed) {
  Client_IO_Base::Options o;
  o.compression_method = m;
  if (sealed) {
    o.cipher = ENCR_AES_256_GCM;
    o.key = KEY;
    o.iv = IV;
  }
  return o;
}


inline bool write_piece(const std::string& url, const Client_IO_Base::Options& o,
                        const std::string& name, const std::vector<Extent>& extents,
                        uint64_t image_size) {
  Client_IO_Ex io;
  if (!io.connect(url, o) || !io.open(name, Client_IO_Base::OPEN_WRITE, 0, 0)) {
    ADD_FAILURE() << io.last_error();
    return false;
  }
  Image_Block_Writer w(io);
  bool ok = w.begin(image_size, 64 << 10);
  for (const Extent& e : extents) {
    ok = ok && (e.data.empty() ? w.append_zeros(e.offset, e.zeros)
                               : w.append(e.offset, e.data.data(), e.data.size()));
  }
  if (ok && w.finish() && io.close()) return true;
  ADD_FAILURE() << io.last_error();
  return false;
}

// Restores into a buffer that starts as 0xEE everywhere, checking every block's shape.
inline bool read_piece(const std::string& url, const Client_IO_Base::Options& o,
                       const std::string& name, size_t block_size, std::string& image,
                       size_t& calls) {
  Client_IO_Ex io;
  if (!io.connect(url, o) || !io.open(name, Client_IO_Base::OPEN_READ, 0, 0)) return false;
  const size_t bs = block_size ? block_size : 64 << 10;
  image.assign(IMAGE_SIZE, '\xEE');
  calls = 0;
  return Image_Block_Reader::read_blocks_align(&io, [&](const void* data, size_t len, off_t off) {
    ++calls;
    EXPECT_EQ(off / bs, (off + len - 1) / bs) << off << "+" << len;
    EXPECT_LE(off + len, image.size());
    if (data == nullptr || off + len > image.size()) return false;
    std::memcpy(&image[off], data, len);
    return true;
  }, block_size);
}

inline std::string expected_image(const std::vector<Extent>& extents) {
  std::string image(IMAGE_SIZE, '\xEE');
  for (const Extent& e : extents) {
    if (e.data.empty()) image.replace(e.offset, e.zeros, e.zeros, '\0');
    else image.replace(e.offset, e.data.size(), e.data);
  }
  return image;
}

// A version 1 piece as that format's writer made it: XXH3-64 of each record's plain bytes,
// sealed records bound to the header. Records stored uncompressed.
inline std::string version_1_piece(const std::vector<Extent>& extents, uint64_t image_size, uint32_t block_size, bool sealed) {
  piece::Header h;
  h.version = piece::VERSION_1, h.block_size = block_size, h.image_size = image_size;
  h.cipher = sealed ? ENCR_AES_256_GCM : ENCR_NONE;
  std::memset(h.salt, sealed ? 7 : 0, sizeof h.salt);
  unsigned char hb[64], rb[40], tb[piece::TRAILER_SIZE];
  Record_Cipher c;
  std::string tag;
  piece::encode(h, hb);
  if (sealed && c.init(KEY, IV, h.salt) && c.seal(piece::KEY_CHECK_RECORD, hb, 40, nullptr, 0, tag)) {
    std::memcpy(h.key_check, tag.data(), 16);
    piece::encode(h, hb);
  }
  std::string p(reinterpret_cast<char*>(hb), 64), index;
  for (const Extent& e : extents) {
    const bool data = !e.data.empty();
    piece::Record r;
    r.offset = e.offset, r.flags = data ? piece::RECORD_DATA : piece::RECORD_ZEROS;
    r.length = data ? e.data.size() : e.zeros;
    r.checksum = data ? piece::xxh3(e.data.data(), e.data.size()) : 0;
    r.stored_length = data ? e.data.size() + (sealed ? 16 : 0) : 0;
    piece::encode(r, rb);
    std::string stored = e.data, rec(reinterpret_cast<char*>(rb), 40), aad = p.substr(0, 64) + rec;
    if (sealed && data) {
      EXPECT_TRUE(c.seal(index.size() / 48, aad.data(), aad.size(), e.data.data(), e.data.size(), stored));
    }
    index += std::string(8, '\0') + rec;
    piece::put64(reinterpret_cast<unsigned char*>(&index[0]) + index.size() - 48, p.size());
    p += rec + stored;
  }
  piece::Trailer t;
  t.record_count = index.size() / 48, t.index_position = p.size();
  const std::string covered = p.substr(0, 64) + index;
  t.checksum = piece::xxh3(covered.data(), covered.size());
  piece::encode(t, tb);
  return p + index + std::string(reinterpret_cast<char*>(tb), sizeof tb);
}

}  // namespace piece_test
