#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include "tests/support/temp_dir.h"
#include "framework/client_io/piece_fixture_test.h"
#include "tests/support/log_capture.h"

namespace {

using namespace piece_test;

class Piece_Test : public ::testing::Test {
 protected:
  std::string url() const { return "file://" + dir.path(); }
  bool write_piece(const std::string& name, const Client_IO_Base::Options& o,
                   const std::vector<Extent>& extents, uint64_t image_size) {
    return piece_test::write_piece(url(), o, name, extents, image_size);
  }
  bool read_piece(const std::string& name, const Client_IO_Base::Options& o, size_t block_size,
                  std::string& image, size_t& calls) {
    return piece_test::read_piece(url(), o, name, block_size, image, calls);
  }
  std::string file_bytes(const std::string& name) {
    std::ifstream f(dir / name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
  }

  au_test::Temp_Dir dir;
};

TEST_F(Piece_Test, pieces_round_trip_for_every_compression_with_and_without_a_key) {
  const std::vector<Extent> extents = image_extents();
  const std::string expected = expected_image(extents);
  const uint64_t data_bytes = 3 * MiB + MiB / 2 + MiB + 5000 + 4 * MiB + 4096;
  for (Compression_Method m : {COMPR_NONE, COMPR_AUTO, COMPR_LZOP, COMPR_ZSTD}) {
    for (bool sealed : {false, true}) {
      const std::string name = "p-" + std::to_string(m) + (sealed ? "-sealed" : "");
      const Client_IO_Base::Options o = options_for(m, sealed);
      ASSERT_TRUE(write_piece(name, o, extents, IMAGE_SIZE)) << name;
      const size_t stored = file_bytes(name).size();
      // Zeros are never stored; text is, unless compression is off, much smaller.
      EXPECT_LT(stored, data_bytes - MiB + 4096) << name;
      if (m != COMPR_NONE) {
        EXPECT_LT(stored, data_bytes - MiB - MiB / 4) << name;
      }
      for (size_t block_size : {size_t(4096), size_t(0), size_t(MiB), size_t(3 * MiB + 17)}) {
        std::string image;
        size_t calls = 0;
        ASSERT_TRUE(read_piece(name, o, block_size, image, calls)) << name << " bs " << block_size;
        EXPECT_TRUE(image == expected) << name << " bs " << block_size;
        EXPECT_GT(calls, block_size == 4096 ? IMAGE_SIZE / 4096 / 2 : 6u);
      }
    }
  }
}

// Sets the header checksum, and the trailer's over header, identity and index, to fit
// the bytes of a version 2 piece (what anyone can do: these sums are not keyed).
void reseal(std::string& p) {
  auto* b = reinterpret_cast<unsigned char*>(&p[0]);
  piece::put64(b + 56, piece::xxh3(b, 56));
  const uint64_t identity_end = 64 + (b[36] | b[37] << 8), index_at = piece::get64(b + p.size() - 56);
  if (index_at > p.size() - 64 || index_at < identity_end) return;
  const std::string covered = p.substr(0, identity_end) + p.substr(index_at, p.size() - 64 - index_at);
  piece::put64(b + p.size() - 48, piece::xxh3(covered.data(), covered.size()));
}

TEST_F(Piece_Test, damaged_pieces_fail_with_one_line_and_nothing_reaches_the_sink) {
  const std::vector<Extent> extents = {{0, text_bytes(100000)},
                                       {200000, "", 50000},
                                       {300000, random_bytes(70000, 9)},
                                       {400000, text_bytes(30000)}};
  for (bool sealed : {false, true}) {
    const Client_IO_Base::Options o = options_for(sealed ? COMPR_ZSTD : COMPR_NONE, sealed);
    // Written under the name it is read by: a sealed piece is bound to its name.
    ASSERT_TRUE(write_piece("bad", o, extents, 500000));
    const std::string good = file_bytes("bad");
    Piece_Layout layout;
    {
      Client_IO_Ex io;
      ASSERT_TRUE(io.connect(url(), o) && io.open("bad", Client_IO_Base::OPEN_READ, 0, 0));
      ASSERT_TRUE(Image_Block_Reader::read_layout(&io, layout));
    }
    ASSERT_EQ(layout.records.size(), 4u);
    const uint64_t size = good.size(), index_at = size - 64 - 4 * 48, at0 = layout.positions[0];
    const std::string rec0 = "record 0 (image offset 0, piece offset " + std::to_string(at0) + ")";
    const std::string trailer = "trailer (piece offset " + std::to_string(size - 64) + "): ";
    const std::string data_fault = sealed ? "authentication failed (altered bytes or another key)"
                                          : "checksum mismatch";
    struct Fault {
      std::string name;
      std::function<void(std::string&)> damage;
      std::string line;
    };
    std::vector<Fault> faults = {
        {"magic", [](std::string& p) { p[0] ^= 1; }, "header (piece offset 0): bad magic, not a piece"},
        {"header", [](std::string& p) { p[17] ^= 4; }, "header (piece offset 0): header checksum mismatch"},
        {"version", [](std::string& p) { p[8] = 3; reseal(p); }, "header (piece offset 0): unknown format version"},
        {"record", [=](std::string& p) { p[at0 + 9] ^= 1; }, rec0 + ": record header differs from the index"},
        {"data", [=](std::string& p) { p[at0 + 40 + 9] ^= 0x10; }, rec0 + ": " + data_fault},
        {"index", [&](std::string& p) { p[index_at + 60] ^= 1; }, trailer + "index checksum mismatch"},
        {"trailer", [&](std::string& p) { p[size - 64] ^= 1; },
         trailer + "record count and index position do not fit the piece size"},
        {"outside", [](std::string& p) { p[18] = 4; p[64 + 34] = 4; reseal(p); },  // image size 500000 -> 303392
         sealed ? "header (piece offset 0): the key does not open this piece"  // the key check covers it
                : "record 2 (image offset 300000, piece offset " + std::to_string(layout.positions[2]) +
                      "): record outside the image (image size 303392)"},
    };
    // Every record boundary, the end of the header, and the start of the trailer.
    for (uint64_t cut : {uint64_t(0), uint64_t(63), at0, layout.positions[1], layout.positions[2],
                         layout.positions[3], index_at, size - 64, size - 1}) {
      faults.push_back({"cut at " + std::to_string(cut), [cut](std::string& p) { p.resize(cut); },
                        cut < at0 + 64 ? "header (piece offset 0): only " + std::to_string(cut) + " bytes, too short for a piece"
                                       : "trailer (piece offset " + std::to_string(cut - 64) +
                                             "): no trailer (the piece is truncated or was never finished)"});
    }
    if (sealed) {
      faults.push_back({"wrong key", nullptr, "header (piece offset 0): the key does not open this piece"});
      faults.push_back({"no key", nullptr, "header (piece offset 0): the piece is encrypted and the connection has no key"});
    }
    for (const Fault& f : faults) {
      std::string bad = good;
      if (f.damage) f.damage(bad);
      dir.write_file("bad", bad);
      Client_IO_Base::Options ro = o;
      if (f.name == "wrong key") ro.key[5] ^= 1;
      if (f.name == "no key") ro = {};
      Client_IO_Ex io;
      ASSERT_TRUE(io.connect(url(), ro) && io.open("bad", Client_IO_Base::OPEN_READ, 0, 0));
      au_test::Log_Capture log;
      size_t calls = 0;
      EXPECT_FALSE(Image_Block_Reader::read_blocks_align(&io, [&](const void*, size_t, off_t) {
        ++calls;
        return true;
      }, 4096)) << f.name;
      EXPECT_EQ(calls, 0u) << f.name;
      const auto records = log.records();
      ASSERT_EQ(records.size(), 1u) << f.name << log.dump();
      EXPECT_EQ(records[0].text, "Invalid piece 'bad' at " + f.line + "\n") << f.name;
      EXPECT_EQ(records[0].text.find(KEY + 10), std::string::npos);
    }
  }
}

TEST_F(Piece_Test, the_writer_refuses_extents_out_of_order_or_outside_the_image) {
  Client_IO_Ex io;
  ASSERT_TRUE(io.connect(url(), {}) && io.open("w", Client_IO_Base::OPEN_WRITE, 0, 0));
  Image_Block_Writer w(io);
  ASSERT_TRUE(w.begin(1000, 512));
  ASSERT_TRUE(w.append(100, "abc", 3));
  au_test::Log_Capture log;
  EXPECT_FALSE(w.append(101, "x", 1));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to write piece 'w': extent at 101 overlaps or precedes the one before\n"))
      << log.dump();
  EXPECT_FALSE(w.finish());  // a failed writer stays failed, without more lines
  EXPECT_EQ(log.records().size(), 1u);

  Image_Block_Writer w2(io);
  ASSERT_TRUE(w2.begin(1000, 512));
  EXPECT_FALSE(w2.append_zeros(999, 2));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to write piece 'w': extent at 999 runs past the image end\n"));
}

}  // namespace
