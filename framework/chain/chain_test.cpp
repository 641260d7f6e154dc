#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>

#include "framework/chain/chain_plan.h"
#include "framework/chain/chain_restore.h"
#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/image_block_writer.h"
#include "framework/client_io/piece_fixture_test.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace {

const char* const KEY = "00112233445566778899aabbccddeeff8f1e2d3c4b5a69788796a5b4c3d2e1f0";
const char* const IV = "0a1b2c3d4e5f60718293a4b5";

piece::Identity identity_at(int k, uint64_t size, const piece::Identity* base,
                            std::string base_name) {
  piece::Identity id;
  id.source_kind = "ceph";
  id.cluster = "fsid-1";
  id.pool = "rbd";
  id.image_name = "vm-1";
  id.image_id = "10ab";
  id.snapshot_id = std::to_string(k + 1);
  id.snapshot_name = "s" + std::to_string(k + 1);
  id.image_size = size;
  if (base != nullptr) {
    id.base_piece_id = base->piece_id;
    id.base_piece_name = std::move(base_name);
    id.base_snapshot_id = base->snapshot_id;
    id.base_snapshot_name = base->snapshot_name;
    id.base_image_size = base->image_size;
  }
  return id;
}

// Restores into memory; grown bytes are junk, so every byte a restore leaves unzeroed shows.
class Memory_Target : public Restore_Target {
 public:
  std::string bytes;
  int writes_left = -1;  // fail once this many writes went through
  std::string name() const override { return "mem://target"; }
  bool size(uint64_t& b) override { return b = bytes.size(), true; }
  bool resize(uint64_t b) override { return bytes.resize(b, '\xee'), true; }
  bool write(uint64_t offset, const void* data, size_t length) override {
    if (writes_left == 0) return fail("device gone");
    if (writes_left > 0) --writes_left;
    if (offset + length > bytes.size()) return fail("write past the end");
    std::memcpy(&bytes[offset], data, length);
    return true;
  }
  bool zero(uint64_t offset, uint64_t length) override {
    if (offset + length > bytes.size()) return fail("zero past the end");
    std::memset(&bytes[offset], 0, length);
    return true;
  }
  bool flush() override { return true; }
};

// ---- The plan over synthetic layouts, against each byte's origin found the slow way.

Chain_Link synthetic_link(int k, uint64_t size, const Chain_Link* base, std::mt19937& g) {
  Chain_Link link;
  link.name = "p" + std::to_string(k);
  link.layout.header.version = 2;
  link.layout.identity = identity_at(k, size, base ? &base->layout.identity : nullptr, "");
  link.layout.identity.piece_id[0] = static_cast<unsigned char>(k + 1);
  for (uint64_t at = g() % 40; at < size; at += g() % 60) {
    piece::Record r;
    r.flags = g() % 4 == 0 ? piece::RECORD_ZEROS : piece::RECORD_DATA;
    r.offset = at;
    r.length = std::min<uint64_t>(1 + g() % 90, size - at);
    link.layout.records.push_back(r);
    at += r.length;
  }
  return link;
}

TEST(Chain_Plan, every_byte_comes_from_the_newest_piece_that_holds_it_and_is_not_cut_off) {
  for (unsigned seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 g(seed);
    std::vector<Chain_Link> links;
    for (int k = 0, n = 1 + g() % 6; k < n; ++k) {
      links.push_back(synthetic_link(k, g() % 700, links.empty() ? nullptr : &links.back(), g));
    }
    Piece_Chain chain;
    ASSERT_TRUE(chain.assign(links));
    const std::vector<Chain_Segment> plan = plan_chain(chain);
    uint64_t at = 0;
    for (size_t i = 0; i < plan.size(); ++i) {
      const Chain_Segment& s = plan[i];
      ASSERT_EQ(s.offset, at);
      ASSERT_TRUE(s.length > 0 && !(s.zeros && i > 0 && plan[i - 1].zeros));
      for (uint64_t x = s.offset; x < s.offset + s.length; ++x) {
        bool zeros = true;  // the slow way: newest first, stop at a snapshot that cut x off
        size_t link = 0, record = 0;
        for (size_t l = links.size(); l-- > 0 && x < links[l].layout.identity.image_size;) {
          const auto& rs = links[l].layout.records;
          auto r = std::find_if(rs.begin(), rs.end(), [&](const piece::Record& r) {
            return r.offset <= x && x < r.offset + r.length;
          });
          if (r == rs.end()) continue;
          zeros = r->flags == piece::RECORD_ZEROS;
          link = l;
          record = static_cast<size_t>(r - rs.begin());
          break;
        }
        ASSERT_EQ(s.zeros, zeros) << "byte " << x;
        ASSERT_TRUE(
            zeros ||
            (s.link == link && s.record == record &&
             s.record_offset + x - s.offset + links[link].layout.records[record].offset == x))
            << "byte " << x;
      }
      at += s.length;
    }
    ASSERT_EQ(at, chain.image_size());
  }
}

TEST(Chain_Plan, links_that_do_not_follow_each_other_are_refused_with_one_line) {
  std::mt19937 g(7);
  const Chain_Link full = synthetic_link(0, 500, nullptr, g);
  const Chain_Link inc = synthetic_link(1, 600, &full, g);
  struct Case {
    std::function<void(Chain_Link& first, Chain_Link& second)> spoil;
    std::string line;
  } cases[] = {
      {[](Chain_Link& a, Chain_Link&) { a.layout.identity.base_piece_id[3] = 1; },
       "Invalid chain at piece 'p0': the oldest piece must be full, and it builds on snapshot  "
       "('')\n"},
      {[](Chain_Link&, Chain_Link& b) { b.layout.identity.base_image_size = 501; },
       "Invalid chain at piece 'p1': its base image size is 501 bytes, and piece 'p0' holds 500 "
       "bytes\n"},
      {[](Chain_Link&, Chain_Link& b) { b.layout.identity.base_piece_id[0] = 9; },
       "Invalid chain at piece 'p1': its base is piece id 09000000000000000000000000000000, and "
       "piece 'p0' has id 01000000000000000000000000000000\n"},
      {[](Chain_Link& a, Chain_Link&) { a.layout.header.version = 1; },
       "Invalid chain at piece 'p1': piece 'p0' is of format version 1, which names no source or "
       "base: it is restored only on its own\n"},
  };
  for (const Case& c : cases) {
    std::vector<Chain_Link> links{full, inc};
    c.spoil(links[0], links[1]);
    au_test::Log_Capture log;
    Piece_Chain chain;
    EXPECT_FALSE(chain.assign(links));
    EXPECT_TRUE(chain.links().empty());
    EXPECT_EQ(log.records().size(), 1u) << log.dump();
    EXPECT_TRUE(log.has(LM_ERROR, c.line)) << log.dump();
  }
}

// ---- Seeded histories backed up into a pool, restored, consolidated and verified.

class Chain_Test : public ::testing::Test {
 protected:
  Client_IO_Base::Options options(bool sealed, const std::string& key = KEY) const {
    Client_IO_Base::Options o;
    if (sealed) {
      o.cipher = ENCR_AES_256_GCM;
      o.key = key;
      o.iv = IV;
    }
    return o;
  }
  Piece_Chain::Connect connect(const Client_IO_Base::Options& o) const {
    const std::string url = "file://" + dir.path();
    return [url, o]() -> std::unique_ptr<Client_IO_Base> {
      std::unique_ptr<Client_IO_Ex> io(new Client_IO_Ex());
      if (!io->connect(url, o)) return nullptr;
      return io;
    };
  }

  // Backs up `image` as piece `name`: the dirty bytes in 64 KiB slices, all-zero slices as
  // zero extents, or left out when they lie past the base's size (a grown tail's zeros).
  bool backup(const Client_IO_Base::Options& o, const std::string& name, const piece::Identity& id,
              const std::string& image, const std::vector<char>& dirty, std::mt19937& g,
              piece::Identity* written) {
    std::unique_ptr<Client_IO_Base> io = connect(o)();
    if (!io || !io->open(name, Client_IO_Base::OPEN_WRITE, 0, 0)) return false;
    Image_Block_Writer w(*io);
    bool ok = w.begin(id, 4096);
    for (uint64_t at = 0; ok && at < image.size();) {
      if (!dirty[at]) {
        ++at;
        continue;
      }
      uint64_t end = at + 1;
      while (end < image.size() && dirty[end] && end % 65536 != 0) ++end;
      const bool zeros =
          std::all_of(&image[at], &image[at] + (end - at), [](char c) { return c == 0; });
      if (!zeros) {
        ok = w.append(at, &image[at], end - at);
      } else if (at < id.base_image_size || g() % 2 == 0) {
        ok = w.append_zeros(at, end - at);
      }
      at = end;
    }
    ok = ok && w.finish() && io->close();
    *written = w.identity();
    return ok;
  }

  // The image at each snapshot: writes of data and of zeros, grows and shrinks between them.
  void make_history(unsigned seed, const Client_IO_Base::Options& o, int snapshots) {
    std::mt19937 g(seed);
    std::string image(4096 + g() % (2 << 20), '\0');
    std::vector<char> dirty(image.size(), 1);
    piece::Identity prev;
    for (int k = 0; k < snapshots; ++k) {
      if (k > 0) {
        for (int op = 0, n = 1 + g() % 6; op < n; ++op) {
          const uint64_t at = g() % image.size(),
                         len = std::min<uint64_t>(1 + g() % 300000, image.size() - at);
          switch (g() % 5) {
            case 0:
            case 1:
              for (uint64_t i = at; i < at + len; ++i)
                image[i] = static_cast<char>(g() % 3 ? g() : 0);
              std::fill(dirty.begin() + at, dirty.begin() + at + len, 1);
              break;
            case 2:
              std::fill(image.begin() + at, image.begin() + at + len, '\0');
              std::fill(dirty.begin() + at, dirty.begin() + at + len, 1);
              break;
            case 3:
              image.resize(image.size() + g() % (1 << 20), '\0');
              dirty.resize(image.size(), 1);
              break;
            default:
              image.resize(4096 + g() % (image.size() - 4095));
              dirty.resize(image.size());
          }
        }
      }
      names.push_back("img/p" + std::to_string(k));
      const piece::Identity id =
          identity_at(k, image.size(), k ? &prev : nullptr, k ? names[k - 1] : "");
      ASSERT_TRUE(backup(o, names.back(), id, image, dirty, g, &prev)) << "seed " << seed;
      images.push_back(image);
      std::fill(dirty.begin(), dirty.end(), 0);
    }
  }

  bool restore(const Piece_Chain& chain, const Client_IO_Base::Options& o, Memory_Target& t,
               Chain_Totals* totals = nullptr, Chain_Callbacks cb = {}) {
    return restore_chain(chain, connect(o), t, cb, totals);
  }

  au_test::Temp_Dir dir;
  std::vector<std::string> names, images;
};

TEST_F(Chain_Test, seeded_histories_restore_every_snapshot_by_newest_by_list_and_consolidated) {
  for (unsigned seed : {11u, 12u, 13u, 14u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::printf("history seed %u\n", seed);
    const Client_IO_Base::Options o = options(seed % 2 == 0);
    names.clear();
    images.clear();
    make_history(seed, o, 6);
    for (size_t k = 0; k < names.size(); ++k) {
      Piece_Chain chain;
      ASSERT_TRUE(chain.load_from_newest(connect(o), names[k])) << names[k];
      ASSERT_EQ(chain.links().size(), k + 1);
      Memory_Target t;
      Chain_Totals totals;
      ASSERT_TRUE(restore(chain, o, t, &totals)) << names[k];
      ASSERT_TRUE(t.bytes == images[k]) << names[k];
      EXPECT_EQ(totals.image_size, images[k].size());
      EXPECT_EQ(totals.data_bytes + totals.zero_bytes, images[k].size());
      EXPECT_EQ(totals.pieces, k + 1);
    }
    // An explicit list into a larger target holding old bytes; then one merged piece.
    Piece_Chain chain;
    ASSERT_TRUE(chain.load_list(connect(o), names));
    Memory_Target big;
    big.bytes.assign(images.back().size() + 3000000, '\x5a');
    ASSERT_TRUE(restore(chain, o, big));
    ASSERT_TRUE(big.bytes == images.back());
    Chain_Totals merged_totals, verified;
    Client_IO_Ex out;
    ASSERT_TRUE(out.connect("file://" + dir.path(), o));
    ASSERT_TRUE(consolidate_chain(chain, connect(o), out, "img/merged", {}, &merged_totals));
    EXPECT_EQ(merged_totals.data_bytes + merged_totals.zero_bytes, images.back().size());
    Piece_Chain merged;
    ASSERT_TRUE(merged.load_from_newest(connect(o), "img/merged"));
    ASSERT_EQ(merged.links().size(), 1u);
    EXPECT_TRUE(merged.newest().layout.identity.is_full());
    EXPECT_TRUE(merged.newest().layout.identity.same_source(chain.newest().layout.identity));
    EXPECT_NE(merged.newest().layout.identity.piece_id, chain.newest().layout.identity.piece_id);
    Memory_Target t;
    ASSERT_TRUE(restore(merged, o, t));
    ASSERT_TRUE(t.bytes == images.back());
    ASSERT_TRUE(verify_chain(chain, connect(o), {}, &verified));
    uint64_t stored = 0;
    for (const Chain_Link& l : chain.links()) stored += l.layout.piece_size;
    EXPECT_GE(stored, verified.piece_bytes_read);
    EXPECT_GT(verified.piece_bytes_read, stored / 2);
  }
}

TEST_F(Chain_Test, chains_out_of_order_foreign_looped_or_broken_are_refused_before_any_write) {
  const Client_IO_Base::Options o = options(false);
  make_history(5, o, 3);
  std::mt19937 g(5);
  piece::Identity base, out;
  ASSERT_TRUE(backup(o, "probe", identity_at(0, 4096, nullptr, ""), std::string(4096, '\1'),
                     std::vector<char>(4096, 1), g, &base));
  auto incremental = [&](const std::string& name, const std::string& base_name,
                         const std::string& image_id) {
    piece::Identity id = identity_at(1, 4096, &base, base_name);
    id.image_id = image_id;
    ASSERT_TRUE(backup(o, name, id, std::string(4096, '\2'), std::vector<char>(4096, 1), g, &out));
  };
  incremental("loop/a", "loop/b", "10ab");
  incremental("loop/b", "loop/a", "10ab");
  incremental("orphan", "img/gone", "10ab");
  incremental("other", "probe", "77ff");
  struct Case {
    std::vector<std::string> list;  // one name: loaded from the newest
    std::string line;
  } cases[] = {
      {{"img/p0", "img/p2", "img/p1"},
       "Invalid chain at piece 'img/p2': its base is snapshot 2 ('s2'), and piece 'img/p0' holds "
       "snapshot 1 ('s1')\n"},
      {{"img/p0", "img/p2"},
       "Invalid chain at piece 'img/p2': its base is snapshot 2 ('s2'), and piece 'img/p0' holds "
       "snapshot 1 ('s1')\n"},
      {{"img/p1", "img/p2"},
       "Invalid chain at piece 'img/p1': the oldest piece must be full, and it builds on snapshot "
       "1 ('s1')\n"},
      {{"other"},
       "Invalid chain at piece 'other': it is of ceph image 'rbd/vm-1' (id '77ff', cluster "
       "'fsid-1'), and piece "
       "'probe' of ceph image 'rbd/vm-1' (id '10ab', cluster 'fsid-1')\n"},
      {{"loop/a"},
       "Invalid chain at piece 'loop/b': its base 'loop/a' is already in the chain (a loop)\n"},
      {{"orphan"}, "Invalid chain at piece 'orphan': its base 'img/gone' cannot be opened: "},
  };
  for (const Case& c : cases) {
    au_test::Log_Capture log;
    Piece_Chain chain;
    EXPECT_FALSE(c.list.size() == 1 ? chain.load_from_newest(connect(o), c.list[0])
                                    : chain.load_list(connect(o), c.list));
    EXPECT_TRUE(chain.links().empty());
    EXPECT_EQ(log.records().size(), 1u) << log.dump();
    EXPECT_TRUE(log.has_fragment(LM_ERROR, c.line)) << log.dump();
    log.clear();
    // Nothing is written from a refused chain.
    Memory_Target t;
    t.bytes = "old";
    EXPECT_FALSE(restore(chain, o, t));
    EXPECT_EQ(t.bytes, "old");
  }
}

// A version 1 piece as its writer left it: data, a zero record, and holes between them.
std::string version_1_piece(const std::string& image) {
  return piece_test::version_1_piece(
      {{0, image.substr(0, 3000)}, {3000, "", 2000}, {6000, image.substr(6000, 3000)}}, image.size(), 4096, false);
}

TEST_F(Chain_Test, a_version_1_piece_restores_and_consolidates_alone_and_is_no_base) {
  const Client_IO_Base::Options o = options(false);
  std::string image = std::string(3000, '\7') + std::string(7000, '\0');
  std::fill(image.begin() + 6000, image.begin() + 9000, '\3');
  ::mkdir((dir / "old").c_str(), 0700);
  dir.write_file("old/v1", version_1_piece(image));
  Piece_Chain chain;
  ASSERT_TRUE(chain.load_from_newest(connect(o), "old/v1"));
  Memory_Target t;
  ASSERT_TRUE(restore(chain, o, t));
  EXPECT_TRUE(t.bytes == image);
  Client_IO_Ex out;
  ASSERT_TRUE(out.connect("file://" + dir.path(), o));
  ASSERT_TRUE(consolidate_chain(chain, connect(o), out, "old/v2", {}, nullptr));
  ASSERT_TRUE(chain.load_from_newest(connect(o), "old/v2"));
  EXPECT_EQ(chain.newest().layout.header.version, piece::VERSION);
  ASSERT_TRUE(restore(chain, o, t));
  EXPECT_TRUE(t.bytes == image);

  std::mt19937 g(1);
  piece::Identity base, written;
  base.image_size = image.size();
  base.piece_id[0] = 1;  // an incremental: it names a base piece
  ASSERT_TRUE(backup(o, "old/on-v1", identity_at(1, image.size(), &base, "old/v1"), image,
                     std::vector<char>(image.size(), 0), g, &written));
  au_test::Log_Capture log;
  EXPECT_FALSE(chain.load_from_newest(connect(o), "old/on-v1"));
  EXPECT_TRUE(
      log.has(LM_ERROR,
              "Invalid chain at piece 'old/on-v1': piece 'old/v1' is of format version 1, which "
              "names no source or base: it is restored only on its own\n"))
      << log.dump();
  EXPECT_EQ(log.records().size(), 1u);
}

TEST_F(Chain_Test,
       sealed_pieces_need_their_key_and_damage_target_faults_and_cancel_fail_with_one_line) {
  const Client_IO_Base::Options o = options(true);
  make_history(21, o, 3);
  Piece_Chain chain;
  {
    au_test::Log_Capture log;
    EXPECT_FALSE(
        chain.load_from_newest(connect(options(true, "ff" + std::string(KEY + 2))), names[2]));
    EXPECT_EQ(log.records().size(), 1u) << log.dump();
  }
  ASSERT_TRUE(chain.load_from_newest(connect(o), names[2]));
  struct Case {
    int writes_left;
    int cancel_after;  // progress calls
    std::string line;
  } cases[] = {
      {1, -1, "Failed to restore chain 'img/p2' to 'mem://target': write "},
      {-1, 1, "Cancelled restore of chain 'img/p2' to 'mem://target'\n"},
  };
  for (const Case& c : cases) {
    au_test::Log_Capture log;
    Memory_Target t;
    t.writes_left = c.writes_left;
    int calls = 0;
    Chain_Callbacks cb;
    cb.progress = [&](uint64_t, uint64_t) { ++calls; };
    cb.cancel = [&] { return c.cancel_after >= 0 && calls >= c.cancel_after; };
    EXPECT_FALSE(restore(chain, o, t, nullptr, cb));
    EXPECT_EQ(log.records().size(), 1u) << log.dump();
    EXPECT_TRUE(log.has_fragment(LM_ERROR, c.line)) << log.dump();
  }
  // One changed bit in the newest piece's first data record: restore and verify refuse it.
  const Piece_Layout& newest = chain.newest().layout;
  size_t r = 0;
  while (newest.records[r].flags != piece::RECORD_DATA) ++r;
  {
    std::fstream f(dir / names[2], std::ios::in | std::ios::out | std::ios::binary);
    const auto at =
        static_cast<std::streamoff>(newest.positions[r] + piece::RECORD_HEADER_SIZE + 1);
    f.seekg(at);
    const char c = static_cast<char>(f.get() ^ 0x40);
    f.seekp(at);
    f.put(c);
  }
  Client_IO_Ex out;
  ASSERT_TRUE(out.connect("file://" + dir.path(), o));
  for (int pass = 0; pass < 3; ++pass) {
    au_test::Log_Capture log;
    Memory_Target t;
    EXPECT_FALSE(pass == 0 ? restore(chain, o, t)
                 : pass == 1
                     ? verify_chain(chain, connect(o), {}, nullptr)
                     : consolidate_chain(chain, connect(o), out, "img/merged", {}, nullptr));
    EXPECT_FALSE(au_test::exists(dir / "img/merged"));  // a failed consolidation leaves nothing
    EXPECT_EQ(log.records().size(), 1u) << log.dump();
    EXPECT_TRUE(log.has_fragment(LM_ERROR, "Invalid piece 'img/p2' at record " + std::to_string(r)))
        << log.dump();
  }
}

}  // namespace
