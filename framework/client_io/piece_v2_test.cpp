// Version 2 pieces: identity, authentication under the key, bounds; version 1 still read.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include "framework/client_io/piece_fixture_test.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace piece_test;
using Bytes = std::string;

const unsigned char* u(const Bytes& b) { return reinterpret_cast<const unsigned char*>(b.data()); }
unsigned char* u(Bytes& b) { return reinterpret_cast<unsigned char*>(&b[0]); }

// Data, a gap, zeros, a gap, data.
const std::vector<Extent>& small_extents() {
  static const std::vector<Extent> e = {{0, text_bytes(100000)}, {200000, "", 50000}, {300000, random_bytes(70000, 9)}};
  return e;
}

piece::Identity sample_identity() {
  piece::Identity id;
  id.source_kind = "ceph", id.cluster = "5f0c-fsid", id.pool = "rbd", id.image_name = "vm-1";
  id.image_id = "10ab", id.snapshot_id = "7", id.snapshot_name = "daily-2", id.image_size = IMAGE_SIZE;
  id.base_piece_id.fill(0x5a);
  id.base_piece_name = "vm-1/daily-1", id.base_snapshot_id = "5", id.base_snapshot_name = "daily-1";
  id.base_image_size = IMAGE_SIZE - MiB, id.chunk_size = 4 << 20;
  return id;
}

// What anyone with write access to a pool can do to a version 2 piece: take its records
// apart, change them, and put the piece back together with fresh (unkeyed) checksums.
// The sealed trailer's HMAC is kept as it was: it cannot be made without the key.
struct Forge {
  Bytes head;                                  // header and identity
  std::vector<std::pair<Bytes, Bytes>> records;  // record header, stored bytes
  Bytes mac;

  explicit Forge(const Bytes& p) {
    const uint64_t size = p.size(), count = piece::get64(u(p) + size - 64);
    const uint64_t index_at = piece::get64(u(p) + size - 56);
    head = p.substr(0, 64 + (piece::get64(u(p) + 32) >> 32));  // identity length at 36
    for (uint64_t i = 0; i < count; ++i) {
      const uint64_t at = piece::get64(u(p) + index_at + 48 * i);
      const Bytes rec = p.substr(at, 40);
      records.push_back({rec, p.substr(at + 40, piece::get64(u(rec) + 24))});
    }
    mac = p.substr(size - 40, 32);
  }
  static void set(Bytes& rec, int at, uint64_t v) { piece::put64(u(rec) + at, v); }
  Bytes build() const {
    Bytes p = head, index(48 * records.size(), '\0');
    for (size_t i = 0; i < records.size(); ++i) {
      piece::put64(u(index) + 48 * i, p.size());
      index.replace(48 * i + 8, 40, records[i].first);
      p += records[i].first + records[i].second;
    }
    Bytes trailer(24, '\0');
    piece::put64(u(trailer), records.size());
    piece::put64(u(trailer) + 8, p.size());
    const Bytes covered = head + index;
    piece::put64(u(trailer) + 16, piece::xxh3(covered.data(), covered.size()));
    return p + index + trailer + mac + "AUPIEND2";
  }
};

// Sets a version 2 header's checksum to fit its bytes.
void reseal_header(Bytes& p) { piece::put64(u(p) + 56, piece::xxh3(p.data(), 56)); }

class Piece_V2_Test : public ::testing::Test {
 protected:
  std::string url() const { return "file://" + dir.path(); }
  Bytes bytes(const std::string& name) const {
    std::ifstream f(dir / name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), {});
  }
  bool write(const std::string& name, const Client_IO_Base::Options& o, const piece::Identity& id,
             const std::vector<Extent>& extents, piece::Identity* written = nullptr) {
    Client_IO_Ex io;
    if (!io.connect(url(), o) || !io.open(name, Client_IO_Base::OPEN_WRITE, 0, 0)) return false;
    Image_Block_Writer w(io);
    bool ok = w.begin(id, 4096);
    for (const Extent& e : extents) {
      ok = ok && (e.data.empty() ? w.append_zeros(e.offset, e.zeros) : w.append(e.offset, e.data.data(), e.data.size()));
    }
    if (written) *written = w.identity();
    return ok && w.finish() && io.close();
  }
  // Reads `name` whole through both readers. True when both accept it; otherwise false,
  // with the one log line each gave (which must be the same) and nothing handed out.
  bool read(const std::string& name, const Client_IO_Base::Options& o, std::string& line,
            size_t* calls = nullptr) {
    au_test::Log_Capture log;
    Client_IO_Ex io, io2;
    EXPECT_TRUE(io.connect(url(), o) && io.open(name, Client_IO_Base::OPEN_READ, 0, 0));
    EXPECT_TRUE(io2.connect(url(), o) && io2.open(name, Client_IO_Base::OPEN_READ, 0, 0));
    size_t n = 0;
    const bool ok = Image_Block_Reader::read_blocks_align(&io, [&](const void*, size_t, off_t) { return ++n > 0; }, 0, true);
    Piece_Record_Reader records;
    EXPECT_EQ(records.open(io2), ok) << name;
    if (calls) *calls = n;
    if (ok) return true;
    EXPECT_EQ(n, 0u) << name;
    const auto lines = log.records();
    EXPECT_EQ(lines.size(), 2u) << log.dump();
    line = lines.empty() ? "" : lines[0].text;
    EXPECT_EQ(lines.size() == 2 ? lines[1].text : "", line);
    return false;
  }
  std::string put(const std::string& name, const Bytes& b) { return dir.write_file(name, b); }

  au_test::Temp_Dir dir;
};

TEST_F(Piece_V2_Test, pieces_carry_their_identity_and_read_back_whole_and_record_by_record) {
  const std::vector<Extent> extents = image_extents();
  const std::string image = expected_image(extents);
  for (bool sealed : {false, true}) {
    const Client_IO_Base::Options o = options_for(COMPR_ZSTD, sealed);
    piece::Identity written;
    ASSERT_TRUE(write("p", o, sample_identity(), extents, &written));
    EXPECT_FALSE(piece::is_zero(written.piece_id));
    EXPECT_GT(written.created, 0u);
    std::string whole;
    size_t calls = 0;
    ASSERT_TRUE(read_piece(url(), o, "p", 0, whole, calls));
    EXPECT_TRUE(whole == image);

    Client_IO_Ex io;
    ASSERT_TRUE(io.connect(url(), o) && io.open("p", Client_IO_Base::OPEN_READ, 0, 0));
    Piece_Record_Reader reader;
    ASSERT_TRUE(reader.open(io));
    const Piece_Layout& l = reader.layout();
    EXPECT_EQ(l.header.version, 2);
    EXPECT_EQ(piece::encode_identity(l.identity), piece::encode_identity(written));
    const Bytes stored = bytes("p");
    size_t data_records = 0;
    for (size_t i = l.records.size(); i-- > 0;) {  // backwards: random access, not a stream
      const piece::Record& r = l.records[i];
      const void* plain = nullptr;
      au_test::Log_Capture log;
      ASSERT_EQ(reader.read_record(i, plain), r.flags == piece::RECORD_DATA) << i;
      if (r.flags != piece::RECORD_DATA) {
        EXPECT_EQ(log.records().size(), 1u);
        continue;
      }
      ++data_records;
      const Bytes expected = image.substr(r.offset, r.length);
      EXPECT_TRUE(Bytes(static_cast<const char*>(plain), r.length) == expected) << i;
      // No unkeyed digest of plain bytes in a sealed piece; an unsealed one has them.
      Bytes sum(8, '\0');
      piece::put64(u(sum), piece::xxh3(expected.data(), expected.size()));
      EXPECT_EQ(stored.find(sum) != Bytes::npos, !sealed) << i;
    }
    EXPECT_GE(data_records, 5u);
    if (sealed) {  // `piece info` shows a sealed piece without its key
      Client_IO_Ex bare;
      Piece_Layout shown;
      ASSERT_TRUE(bare.connect(url(), {}) && bare.open("p", Client_IO_Base::OPEN_READ, 0, 0));
      ASSERT_TRUE(Image_Block_Reader::read_layout(&bare, shown, false));
      EXPECT_EQ(piece::to_hex(shown.identity.piece_id), piece::to_hex(written.piece_id));
    }
  }
}

TEST_F(Piece_V2_Test, identities_are_bounded_and_compared_by_source) {
  piece::Identity id = sample_identity();
  piece::Identity back;
  const char* why = nullptr;
  id.piece_id.fill(1);
  const Bytes block = piece::encode_identity(id);
  ASSERT_TRUE(piece::decode_identity(block.data(), block.size(), back, why));
  EXPECT_EQ(piece::encode_identity(back), block);
  EXPECT_FALSE(piece::decode_identity(block.data(), block.size() - 1, back, why));
  EXPECT_EQ(piece::to_hex(id.piece_id), "01010101010101010101010101010101");

  EXPECT_FALSE(id.is_full());
  piece::Identity full = id;
  full.base_piece_id.fill(0);
  EXPECT_FALSE(full.is_full());  // still names a base snapshot
  full.base_piece_name = full.base_snapshot_id = full.base_snapshot_name = "";
  EXPECT_TRUE(full.is_full());
  piece::Identity other = id;
  other.snapshot_id = "9";
  EXPECT_TRUE(id.same_source(other));
  other.pool = "rbd2";
  EXPECT_FALSE(id.same_source(other));
  EXPECT_FALSE(piece::Identity().same_source(piece::Identity()));

  id.cluster.assign(piece::MAX_IDENTITY_TEXT + 1, 'c');
  Client_IO_Ex io;
  ASSERT_TRUE(io.connect(url(), {}) && io.open("w", Client_IO_Base::OPEN_WRITE, 0, 0));
  Image_Block_Writer w(io);
  au_test::Log_Capture log;
  EXPECT_FALSE(w.begin(id, 4096));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to write piece 'w': an identity text is longer than 1024 bytes\n")) << log.dump();
}

TEST_F(Piece_V2_Test, forged_sealed_pieces_are_refused_with_one_line_before_any_block) {
  const Client_IO_Base::Options sealed = options_for(COMPR_ZSTD, true);
  ASSERT_TRUE(write("bad", sealed, sample_identity(), small_extents()));
  ASSERT_TRUE(write("other", sealed, sample_identity(), small_extents()));
  const Bytes good = bytes("bad");
  ASSERT_EQ(Forge(good).records.size(), 3u);
  ASSERT_EQ(Forge(good).build(), good);
  std::string line;
  ASSERT_TRUE(read("bad", sealed, line));

  const std::string auth = "authentication failed (altered, or sealed under another name)";
  struct Case {
    std::string name;
    std::function<Bytes()> forge;
    std::string line;  // after "trailer (piece offset <size - 64>): " unless it starts "header"
  };
  const std::vector<Case> cases = {
      {"zero record widened", [&] { Forge f(good); Forge::set(f.records[1].first, 16, 100000); return f.build(); }, auth},
      {"data record turned into zeros", [&] {
         Forge f(good);
         Bytes& rec = f.records[2].first;
         rec[4] = piece::RECORD_ZEROS;
         rec[5] = COMPR_NONE;
         Forge::set(rec, 24, 0);
         f.records[2].second.clear();
         return f.build();
       }, auth},
      {"last record dropped", [&] { Forge f(good); f.records.pop_back(); return f.build(); }, auth},
      {"copied over another name", [&] { return bytes("other"); }, auth},
      {"unsealed piece", [&] {
         EXPECT_TRUE(write("plain", options_for(COMPR_ZSTD, false), sample_identity(), small_extents()));
         return bytes("plain");
       }, "header (piece offset 0): the connection has a key and the piece is not sealed"},
  };
  for (const Case& c : cases) {
    const Bytes forged = c.forge();
    put("bad", forged);
    const std::string where = c.line.rfind("header", 0) == 0 ? "" : "trailer (piece offset " + std::to_string(forged.size() - 64) + "): ";
    EXPECT_FALSE(read("bad", sealed, line)) << c.name;
    EXPECT_EQ(line, "Invalid piece 'bad' at " + where + c.line + "\n") << c.name;
  }
}

TEST_F(Piece_V2_Test, hostile_sizes_and_counts_fail_fast) {
  ASSERT_TRUE(write("p", {}, sample_identity(), small_extents()));
  const Bytes good = bytes("p");
  const uint64_t identity_at = 64, text_at = identity_at + 60, trailer_at = good.size() - 64;
  struct Case {
    std::string name;
    std::function<void(Bytes&)> damage;
    std::string line;
  };
  const std::vector<Case> cases = {
      {"2^60 image", [&](Bytes& p) {
         piece::put64(u(p) + 16, uint64_t(1) << 60);
         piece::put64(u(p) + identity_at + 32, uint64_t(1) << 60);
         reseal_header(p);
       }, "header (piece offset 0): image size larger than 1 PiB"},
      {"1-byte blocks", [](Bytes& p) { p.replace(12, 4, Bytes("\x01\0\0\0", 4)); reseal_header(p); },
       "header (piece offset 0): bad block size"},
      {"huge identity", [](Bytes& p) { p[36] = p[37] = p[38] = p[39] = '\xff'; reseal_header(p); },
       "header (piece offset 0): identity length out of bounds"},
      {"huge identity text", [&](Bytes& p) { p[text_at] = p[text_at + 1] = '\xff'; },
       "identity (piece offset 64): identity text out of bounds"},
      {"huge record count", [&](Bytes& p) { piece::put64(u(p) + trailer_at, uint64_t(1) << 60); },
       "trailer (piece offset " + std::to_string(trailer_at) + "): record count and index position do not fit the piece size"},
      {"record count that wraps", [&](Bytes& p) { piece::put64(u(p) + trailer_at, ~uint64_t(0) / 48 + 2); },
       "trailer (piece offset " + std::to_string(trailer_at) + "): record count and index position do not fit the piece size"},
      {"v1 2^60 image", [](Bytes& p) { p = version_1_piece({{0, "", uint64_t(1) << 60}}, uint64_t(1) << 60, 1, false); },
       "header (piece offset 0): image size larger than 1 PiB"},
  };
  std::string line;
  for (const Case& c : cases) {
    Bytes bad = good;
    c.damage(bad);
    put("p", bad);
    EXPECT_FALSE(read("p", {}, line)) << c.name;
    EXPECT_EQ(line, "Invalid piece 'p' at " + c.line + "\n") << c.name;
  }
  // The largest image allowed, all zeros in 1-byte blocks: a sparse sink gets 1 GiB calls.
  put("p", version_1_piece({{0, "", piece::MAX_IMAGE_SIZE}}, piece::MAX_IMAGE_SIZE, 1, false));
  size_t calls = 0;
  EXPECT_TRUE(read("p", {}, line, &calls));
  EXPECT_EQ(calls, piece::MAX_IMAGE_SIZE >> 30);
}

TEST_F(Piece_V2_Test, version_1_pieces_still_read) {
  const std::vector<Extent> extents = {{0, random_bytes(3 * MiB, 1)}, {4 * MiB, "", MiB}, {6 * MiB + 100, text_bytes(5000)}};
  for (bool sealed : {false, true}) {
    put("v1", version_1_piece(extents, IMAGE_SIZE, 4096, sealed));
    std::string image, line;
    size_t calls = 0;
    ASSERT_TRUE(read_piece(url(), options_for(COMPR_NONE, sealed), "v1", 0, image, calls)) << sealed;
    EXPECT_TRUE(image == expected_image(extents));
    Client_IO_Ex io;
    ASSERT_TRUE(io.connect(url(), options_for(COMPR_NONE, sealed)) && io.open("v1", Client_IO_Base::OPEN_READ, 0, 0));
    Piece_Record_Reader reader;
    const void* plain = nullptr;
    ASSERT_TRUE(reader.open(io) && reader.read_record(2, plain));
    EXPECT_EQ(Bytes(static_cast<const char*>(plain), 5000), extents[2].data);
    EXPECT_EQ(reader.layout().header.version, 1);
    EXPECT_EQ(piece::encode_identity(reader.layout().identity), piece::encode_identity([] {
                piece::Identity id;
                id.image_size = IMAGE_SIZE;
                return id;
              }()));
    if (!sealed) {
      EXPECT_FALSE(read("v1", options_for(COMPR_NONE, true), line));
      EXPECT_EQ(line, "Invalid piece 'v1' at header (piece offset 0): the connection has a key and the piece is not sealed\n");
    }
  }
}

}  // namespace
