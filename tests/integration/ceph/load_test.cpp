// Sixteen threads on one connection factory: each backs up its own busy image into its
// own piece, then (all at once) restores that piece into a new image and reads it back
// whole. Half the threads share the test's cluster handle, half connect on their own; half
// keep their pieces in a directory pool, half in a bucket of the sandbox's gateway.
// Work on one image stays on one thread: snapshot creation and removal wait for the
// monitor, which then serves all sixteen in one round.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "framework/client_io/s3_client.h"
#include "sim/backupd/backupd_sim.h"
#include "tests/integration/ceph/pool_fixture.h"
#include "tests/support/sandbox_bucket.h"
#include "tests/support/temp_dir.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/ceph/ceph_image_writer.h"
#include "utils/agent/io_connection_factory.h"

namespace {

using ceph_test::MiB;
using ceph_test::POOL;

constexpr int THREADS = 16;
constexpr uint64_t SIZE = 32 * MiB;

// Image k's writes in order: a MiB of its own bytes at a place of its own, another at
// 0, then short text writes across the image, some over the MiBs.
std::vector<std::pair<uint64_t, std::string>> writes(int k) {
  std::vector<std::pair<uint64_t, std::string>> w;
  std::mt19937_64 rng(k + 1);
  for (const uint64_t at : {uint64_t(k) * 2 * MiB, uint64_t(0)}) {
    std::string data(MiB, '\0');
    for (char& c : data) c = char(rng());
    w.emplace_back(at, std::move(data));
  }
  for (uint64_t j = 0; j < 10; ++j) w.emplace_back(j * 3 * MiB + k * 4096 + 100, std::string(5000, char('a' + k)));
  return w;
}

// The bytes of image k from `offset` on, as many as `window` holds.
void expected(const std::vector<std::pair<uint64_t, std::string>>& w, uint64_t offset, std::string& window) {
  window.assign(window.size(), '\0');
  for (const auto& [at, data] : w) {
    const uint64_t from = std::max(at, offset), to = std::min(at + data.size(), offset + window.size());
    if (from < to) window.replace(from - offset, to - from, data, from - at, to - from);
  }
}

struct Thread_Run {
  bool made = false, backed_up = false, opened = false, restored = false;
  uint64_t piece_bytes = 0, bytes_read = 0;
  std::string mismatch;  // where the restored image first differs
};

class Load : public ceph_test::Pool_Fixture {
 protected:
  // In process and in parallel: the rbd tool takes a second or more an image.
  void TearDown() override {
    std::string ignored;
    bucket_.remove(ignored);
    on_every_thread([&](int k) {
      ceph::Ceph_Client shared(client_->context());
      ceph::Ceph_Pool pool;
      if (!shared.open_pool(POOL, pool)) return;
      for (const std::string& name : {source(k), source(k) + "-r"}) pool.remove_image(name, true);
    });
  }

  template <class Body>
  void on_every_thread(Body body) {
    std::vector<std::thread> threads;
    for (int k = 0; k < THREADS; ++k) threads.emplace_back(body, k);
    for (auto& t : threads) t.join();
  }

  std::string source(int k) const { return prefix_ + std::to_string(k); }
  std::string uri(const std::string& name) const { return "ceph://" + POOL + "/" + name; }

  const std::string prefix_ = au_test::unique_ceph_name("load") + "-";
  au_test::Sandbox_Bucket bucket_;
};

TEST_F(Load, sixteen_threads_share_one_factory_each_restoring_its_own_piece) {
  au_test::Temp_Dir dir;
  au_sim::Backupd_Sim backupd;
  ASSERT_TRUE(backupd.start());
  backupd.add_pool("load", "file://" + dir.path());
  // Threads k % 4 == 2, 3 go to the bucket: both kinds of cluster connection meet both pools.
  au_test::Sandbox_S3 s3;
  ASSERT_TRUE(au_test::sandbox_s3(s3)) << "the sandbox has no S3 gateway (s3.env)";
  const std::string url = s3.url + "/" + prefix_ + "pieces";
  std::string error;
  ASSERT_TRUE(bucket_.create(s3, url, error)) << error;
  backupd.set_pool("objects", json_spirit::Object{
                                  {"uuid", "u-s3"}, {"name", "objects"}, {"url", url}, {"s3_enabled", true},
                                  {"default_s3", json_spirit::Object{{"region", "default"},
                                                                     {"access_key", s3.access_key},
                                                                     {"secret_key", s3.secret_key}}}});
  const auto pool_of = [](int k) { return k % 4 < 2 ? "load" : "objects"; };
  IO_Connection_Factory factory(Client_IO_Base::Options(), 0);
  factory.options().bounds.local_roots = {dir.path()};
  ASSERT_TRUE(factory.init_upstream("127.0.0.1", backupd.port(), false, ""));
  const ceph::Options own_connection{"admin", au_test::ceph_conf_path(), {}};
  std::vector<Thread_Run> runs(THREADS);

  on_every_thread([&](int k) {
    Thread_Run& run = runs[k];
    ceph::Ceph_Client shared(client_->context());
    ceph::Ceph_Pool pool;
    ceph::Ceph_Image image;
    ceph::Ceph_Snapshot snap;
    run.made = shared.open_pool(POOL, pool) && pool.new_image(source(k), SIZE, image, 1, 22, 0, 0, false);
    for (const auto& [at, data] : writes(k))
      run.made = run.made && image.write(at, data.size(), data.data(), 0) == int(data.size());
    run.made = run.made && image.new_snapshot("s", snap);
    ceph::Ceph_Image_Backup b(factory);
    ceph::Backup_Totals totals;
    const std::string at_snap = uri(source(k)) + "@s";
    run.backed_up = run.made && (k % 2 ? b.open(own_connection, at_snap) : b.open(shared, at_snap)) &&
                    b.backup(pool_of(k), "load/" + std::to_string(k), "", 16, &totals);
    run.piece_bytes = totals.piece_bytes;
  });
  on_every_thread([&](int k) {
    Thread_Run& run = runs[k];
    ceph::Ceph_Client shared(client_->context());
    ceph::Ceph_Pool pool;
    ceph::Ceph_Image target;
    const std::string name = source(k) + "-r";
    if (!run.backed_up || !shared.open_pool(POOL, pool) || !pool.new_image(name, SIZE, target, 1, 22, 0, 0, false))
      return;
    target.close_image();
    ceph::Ceph_Image_Writer w(factory);
    run.opened = k % 2 ? w.open(own_connection, uri(name)) : w.open(shared, uri(name));
    run.restored = run.opened && w.write(pool_of(k), "load/" + std::to_string(k), 0, &run.bytes_read);
    if (!run.restored) return;
    const auto want_writes = writes(k);
    std::string got(4 * MiB, '\0'), want(got.size(), '\0');
    for (uint64_t off = 0; off < SIZE && run.mismatch.empty(); off += got.size()) {
      expected(want_writes, off, want);
      if (w.image().read(off, got.size(), &got[0], 0) != int(got.size())) {
        run.mismatch = "short read at " + std::to_string(off);
      } else if (got != want) {
        run.mismatch = "data at " + std::to_string(off);
      }
    }
  });

  uint64_t bytes_read = 0;
  int verified = 0;
  for (int k = 0; k < THREADS; ++k) {
    const Thread_Run& r = runs[k];
    EXPECT_TRUE(r.made && r.backed_up && r.opened && r.restored)
        << "thread " << k << ": " << r.made << r.backed_up << r.opened << r.restored << "\n" << logs_.dump();
    EXPECT_EQ("", r.mismatch) << "thread " << k;
    EXPECT_EQ(r.piece_bytes, r.bytes_read) << "thread " << k << " reads its own piece whole";
    verified += r.restored && r.mismatch.empty();
    bytes_read += r.bytes_read;
  }
  // Sixteen connections to each new pool: one description of each asked of backupd.
  EXPECT_EQ(1u, backupd.pool_requests("load").size());
  EXPECT_EQ(1u, backupd.pool_requests("objects").size());
  std::printf("load: %d threads, %d images restored and verified (half from a directory pool, half from S3), %llu "
              "bytes of pieces read, %llu image bytes compared\n",
              THREADS, verified, static_cast<unsigned long long>(bytes_read),
              static_cast<unsigned long long>(verified * SIZE));
}

}  // namespace
