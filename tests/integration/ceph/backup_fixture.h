// What the backup-and-chain tests of sandbox images share: a directory pool, images made
// and changed through the library, backups into pieces, chain restores into RBD images,
// and `rbd export` of a snapshot as the oracle.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "framework/chain/chain_restore.h"
#include "framework/chain/piece_chain.h"
#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/image_block_reader.h"
#include "tests/integration/ceph/pool_fixture.h"
#include "tests/support/temp_dir.h"
#include "utils/agent/ceph/ceph_chain_restore.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/io_connection_factory.h"

namespace ceph_test {

// md5 of `rbd export` of "image" or "image@snap" of the sandbox pool.
inline std::string export_sum(const std::string& rbd_path) {
  std::string out;
  EXPECT_TRUE(au_test::run_ceph_cli("rbd export --no-progress " + POOL + "/" + rbd_path + " - | md5sum", &out))
      << rbd_path;
  return out.substr(0, out.find(' '));
}

// `length` bytes of a kind: 'r' random, 't' text-like, 'z' zeros; the same for the same seed.
inline std::string bytes_of(uint64_t length, char kind, uint64_t seed) {
  std::string data(length, '\0');
  std::mt19937_64 rng(seed);
  for (char& c : data) c = kind == 'r' ? char(rng()) : kind == 't' ? "backup agents write text\n"[rng() % 25] : 0;
  return data;
}

class Backup_Fixture : public Pool_Fixture {
 protected:
  void SetUp() override {
    Pool_Fixture::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    ASSERT_TRUE(pool_io_.connect("file://" + dir_.path(), Client_IO_Base::Options()));
  }

  // A new image of `bytes` (any size), removed when the test ends; `args` adds rbd options.
  bool create(const std::string& name, uint64_t bytes, const std::string& args = "--object-size 4M") {
    images_->image(name);
    return rbd("create " + args + " --size " + std::to_string(bytes / 1024) + "K " + POOL + "/" + name) &&
           (bytes % 1024 == 0 || resize(name, bytes));
  }
  bool resize(const std::string& name, uint64_t bytes) {
    ceph::Ceph_Image image;
    return pool_.open_image(name, image, false) && image.resize(bytes, true, nullptr);
  }
  void write(const std::string& name, uint64_t offset, uint64_t length, char kind) {
    ceph::Ceph_Image image;
    ASSERT_TRUE(pool_.open_image(name, image, false));
    const std::string data = bytes_of(length, kind, offset * 31 + length);
    ASSERT_EQ(int(length), image.write(offset, length, data.data(), 0)) << name;
  }
  bool snap(const std::string& name, const std::string& s) {
    return rbd("snap create --no-progress " + POOL + "/" + name + "@" + s);
  }

  // Backs up "image@snap" since `from` (a snapshot, or with `after` a piece; empty: full).
  bool backup(const std::string& snapshot, const std::string& from, const std::string& piece,
              int power = 16, ceph::Backup_Totals* totals = nullptr, bool after = false) {
    ceph::Ceph_Image_Backup b(factory_);
    if (!b.open(*client_, "ceph://" + POOL + "/" + snapshot)) return false;
    return after ? b.backup_after(pool_io_, piece, from, power, totals)
                 : b.backup_to(pool_io_, piece, from, power, totals);
  }

  Piece_Chain::Connect connect() const {
    const std::string url = "file://" + dir_.path();
    return [url]() -> std::unique_ptr<Client_IO_Base> {
      auto io = std::make_unique<Client_IO_Ex>();
      if (!io->connect(url, Client_IO_Base::Options())) return nullptr;
      return io;
    };
  }
  bool layout(const std::string& piece, Piece_Layout& out) {
    if (!pool_io_.open(piece, Client_IO_Base::OPEN_READ, 0, 0)) return false;
    const bool ok = Image_Block_Reader::read_layout(&pool_io_, out);
    pool_io_.close();
    return ok;
  }
  // The chain ending at `newest` merged into the new full piece `merged`, in the pool.
  bool consolidate(const std::string& newest, const std::string& merged) {
    Piece_Chain chain;
    return chain.load_from_newest(connect(), newest) && consolidate_chain(chain, connect(), pool_io_, merged, {}, nullptr);
  }
  // Restores the chain ending at `newest` (or the explicit list) into image `target`.
  bool restore(const std::string& target, const std::vector<std::string>& pieces, bool from_newest,
               Chain_Totals* totals = nullptr) {
    images_->image(target);
    Piece_Chain chain;
    const bool loaded = from_newest ? chain.load_from_newest(connect(), pieces.back())
                                    : chain.load_list(connect(), pieces);
    return loaded && ceph::restore_chain_into(*client_, "ceph://" + POOL + "/" + target, chain, connect(), {}, totals);
  }

  ceph_test::Cleanup* images_ = &cleanup_;  // where made images are noted for removal
  au_test::Temp_Dir dir_;
  Client_IO_Ex pool_io_;
  IO_Connection_Factory factory_;  // unused: the pool is reached by its URL
};

}  // namespace ceph_test
