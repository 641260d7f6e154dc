// Every librados/librbd call of each public Ceph operation failed in turn, on the sandbox:
// a scenario runs once to count its calls and give its outcome, then once per call with
// that call failing. Each run must end (no crash, no hang) either in success with the same
// outcome, where the failed call is one the library may do without, or in false with a
// failure line; where the library promises to clean up, nothing it made may be left.
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "framework/client_io/client_io_ex.h"
#include "tests/integration/ceph/pool_fixture.h"
#include "tests/support/ceph_fault_injector.h"
#include "tests/support/temp_dir.h"
#include "framework/chain/piece_chain.h"
#include "utils/agent/ceph/ceph_chain_restore.h"
#include "utils/agent/ceph/ceph_group.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/ceph/ceph_image_writer.h"
#include "utils/agent/io_connection_factory.h"

namespace {

using ceph_test::MiB;
using ceph_test::POOL;

struct Scenario {
  const char* name;
  // Under injection: true with `outcome` filled (what a correct run gives), or false.
  std::function<bool(std::string& outcome)> run;
  // After a failed run: what the library should have removed ("" when nothing is left).
  std::function<std::string()> leftover;
  // After every run, without injection: back to the state the scenario starts from.
  std::function<void()> reset;
};

class Fault_Injection : public ceph_test::Pool_Fixture {
 protected:
  void TearDown() override {
    for (const std::string& g : groups_) pool_.remove_group(g);
    for (const std::string& i : images_) pool_.remove_image(i, true);
  }

  // A new image of 8 MiB holding `fill` at 1 MiB, removed when the test ends.
  bool make(const std::string& name, char fill = 'x') {
    images_.insert(name);
    ceph::Ceph_Image image;
    const std::string data(3 * MiB, fill);
    return pool_.new_image(name, 8 * MiB, image, 1, 22, 0, 0, false) &&
           image.write(MiB, data.size(), data.data(), 0) == int(data.size());
  }
  // Asked of the rbd tool, so that the probes make no calls of their own to fail.
  bool exists(const std::string& name) {
    return au_test::run_ceph_cli("rbd info " + POOL + "/" + name + " >/dev/null 2>&1", nullptr);
  }
  bool group_exists(const std::string& name) {
    return au_test::run_ceph_cli("rbd group ls " + POOL + " | grep -qx " + name, nullptr);
  }
  std::string image_sum(const std::string& rbd_path) {
    std::string out;
    au_test::run_ceph_cli("rbd export --no-progress " + POOL + "/" + rbd_path + " - | md5sum", &out);
    return out;
  }

  // Read, write and flush log nothing of their own: their failure is told by the result
  // the caller gets.
  bool returned(int r, uint64_t want) {
    coded_ = coded_ || r < 0;
    return r >= 0 && uint64_t(r) == want;
  }
  bool returned(bool ok) {
    coded_ = coded_ || !ok;
    return ok;
  }

  au_test::Temp_Dir dir_;
  IO_Connection_Factory factory_;
  std::set<std::string> images_, groups_;
  bool coded_ = false;
};

TEST_F(Fault_Injection, every_ceph_call_of_every_operation_fails_cleanly) {
  const std::string n = au_test::unique_ceph_name("fi");
  const std::string src = n + "-src", target = n + "-r", made = n + "-new", snapped = n + "-snap";
  const std::string g = n + "-g", member1 = n + "-m1", member2 = n + "-m2", rw = n + "-rw";
  groups_.insert(g);
  images_.insert(target);
  images_.insert(made);
  ASSERT_TRUE(make(src) && make(snapped) && make(member1) && make(member2) && make(rw));
  {
    ceph::Ceph_Image image;
    ceph::Ceph_Snapshot s;
    ASSERT_TRUE(pool_.open_image(src, image, false) && image.new_snapshot("s1", s));
    const std::string data(4096, 'y'), zeros(64 * 1024, '\0');  // a zero record over data
    ASSERT_EQ(4096, image.write(6 * MiB, 4096, data.data(), 0));
    ASSERT_EQ(int(zeros.size()), image.write(2 * MiB, zeros.size(), zeros.data(), 0));
    ASSERT_TRUE(image.new_snapshot("s2", s));
  }
  bool group_made = false;
  std::set<std::string> pieces;  // written by the backup and restore scenario
  // A run that failed may leave its image (no promise there), but not open: then the
  // removal finds it busy.
  const auto remove = [&](const std::string& name) {
    if (exists(name)) {
      EXPECT_TRUE(pool_.remove_image(name, true)) << logs_.dump();
    }
  };

  // A failed backup drops its piece.
  const auto no_dropped_piece = [&] {
    Client_IO_Ex io;
    std::vector<std::string> names;
    if (!io.connect("file://" + dir_.path(), Client_IO_Base::Options()) || !io.list("", names))
      return std::string("an unreadable pool");
    for (const std::string& name : names)
      if (pieces.count(name) == 0) return "piece " + name;
    return std::string();
  };
  const auto clear_pieces = [&] {
    remove(target);
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) std::filesystem::remove_all(entry);
    pieces.clear();
  };

  const std::vector<Scenario> scenarios = {
      {"connect and list pools",
       [&](std::string& outcome) {
         // Inline options, as an agent gives them: each is set on its own.
         ceph::Ceph_Client client("admin", ceph::Ceph_Config(au_test::ceph_conf_text()).options(), true);
         std::vector<std::string> pools;
         if (client.error_code() != 0 || !client.list_pool(pools)) return false;
         for (const std::string& p : pools) outcome += p == POOL ? p : "";
         return true;
       },
       [] { return std::string(); }, [] {}},
      {"pool: open, name, list images, open an image",
       [&](std::string& outcome) {
         ceph::Ceph_Pool pool, again;
         std::vector<ceph::Image_Spec> images;
         ceph::Ceph_Image image;
         std::string name;
         uint64_t size = 0;
         if (!client_->open_pool(POOL, pool) || !pool.get_pool_name(name) || !pool.list_image(images) ||
             !pool.open_image(src, image, true) || (size = image.size()) == uint64_t(-1))
           return false;
         for (const ceph::Image_Spec& i : images) outcome += i.name == src ? name + "/" + i.name : "";
         outcome += " " + std::to_string(size);
         return true;
       },
       [] { return std::string(); }, [] {}},
      {"image: create, resize, remove",
       [&](std::string& outcome) {
         ceph::Ceph_Image image;
         if (!pool_.new_image(made, 8 * MiB, image, 1, 22, 0, 0, false) || !image.resize(12 * MiB, false, {}))
           return false;
         const uint64_t size = image.size();
         if (size == uint64_t(-1)) return false;
         outcome = std::to_string(size);
         image.close_image();
         return pool_.remove_image(made, false) && !exists(made);
       },
       [] { return std::string(); }, [&] { remove(made); }},
      {"snapshots: create, rollback, remove with purge",
       [&](std::string& outcome) {
         ceph::Ceph_Image image;
         ceph::Ceph_Snapshot s;
         const std::string other(MiB, 'z');
         std::string back(MiB, '\0');
         if (!pool_.open_image(snapped, image, false) || !image.new_snapshot("a", s) ||
             !returned(image.write(MiB, other.size(), other.data(), 0), MiB) || !image.rollback("a", {}) ||
             !returned(image.read(MiB, back.size(), &back[0], 0), MiB))
           return false;
         outcome = back == std::string(MiB, 'x') ? "rolled back" : "not rolled back";
         image.close_image();
         return pool_.remove_image(snapped, true) && !exists(snapped);
       },
       [] { return std::string(); },
       [&] {
         remove(snapped);
         EXPECT_TRUE(make(snapped)) << logs_.dump();
       }},
      {"consistency group: create with images, group snapshot, remove an image, remove",
       [&](std::string& outcome) {
         ceph::Ceph_Group group;
         group_made = false;
         std::vector<ceph::Group_Snapshot_Info> snaps;
         std::vector<ceph::Image_Spec> members;
         if (!(group_made = pool_.new_group(g, {member1, member2}, group)) || !group.create_snapshot("gs") ||
             !group.list_snapshot(snaps) || !group.remove_image(member2) || !group.list_image(members))
           return false;
         outcome = std::to_string(snaps.size()) + " snapshot, " + std::to_string(members.size()) + " member";
         return pool_.remove_group(g) && !group_exists(g);
       },
       // All or nothing: a group that could not take its images is removed again.
       [&] { return !group_made && group_exists(g) ? "group " + g : std::string(); },
       [&] {
         pool_.remove_group(g);
         for (const std::string& m : {member1, member2}) {
           ceph::Ceph_Image image;
           if (pool_.open_image(m, image, false)) image.purge_snapshots(true);
         }
       }},
      {"changed blocks between two snapshots",
       [&](std::string& outcome) {
         ceph::Ceph_Snapshot s2;
         Blocks blocks;
         if (!pool_.open_snapshot(src, "s2", s2, true) ||
             !s2.get_changed_blocks("s1", blocks, 16, Range(0, 0), false, {}, false, false))
           return false;
         outcome = ceph_test::dump(blocks);
         return true;
       },
       [] { return std::string(); }, [] {}},
      {"write, flush, read",
       [&](std::string& outcome) {
         ceph::Ceph_Image image;
         const std::string data(MiB, 'w');
         std::string back(2 * MiB, '\0');
         if (!pool_.open_image(rw, image, false) || !returned(image.write(0, data.size(), data.data(), 0), MiB) ||
             !returned(image.flush()) || !returned(image.read(0, back.size(), &back[0], 0), 2 * MiB))
           return false;
         outcome = back == data + std::string(MiB, 'x') ? "as written" : "not as written";
         return true;
       },
       [] { return std::string(); }, [] {}},
      {"backup and restore: full and incremental pieces, new image",
       [&](std::string& outcome) {
         ceph::Ceph_Client& client = *client_;
         Client_IO_Ex io;
         ceph::Ceph_Image_Backup b(factory_);
         ceph::Ceph_Image_Writer w(factory_);
         ceph::Ceph_Pool pool;
         ceph::Ceph_Image image;
         const std::string uri = "ceph://" + POOL + "/" + src;
         const auto piece = [&](const std::string& name, const std::string& snap, const std::string& from) {
           const bool ok = b.open(client, uri + "@" + snap) && b.backup_to(io, name, from, 16, nullptr);
           if (ok) pieces.insert(name);
           return ok;
         };
         if (!(io.connect("file://" + dir_.path(), Client_IO_Base::Options()) && piece("full", "s1", "") &&
               piece("incr", "s2", "s1") && client.open_pool(POOL, pool) &&
               pool.new_image(target, 8 * MiB, image, 1, 22, 0, 0, false) &&
               w.open(client, "ceph://" + POOL + "/" + target) && w.write_from(io, "full", MiB, nullptr) &&
               w.write_from(io, "incr", MiB, nullptr)))
           return false;
         outcome = image_sum(target) == image_sum(src + "@s2") ? "restored" : "differs";
         return true;
       },
       no_dropped_piece, clear_pieces},
      {"chain: backup after a piece, restore into a new image",
       [&](std::string& outcome) {
         Client_IO_Ex io;
         ceph::Ceph_Image_Backup b(factory_);
         Piece_Chain chain;
         const std::string uri = "ceph://" + POOL + "/" + src, url = "file://" + dir_.path();
         const Piece_Chain::Connect connect = [&]() -> std::unique_ptr<Client_IO_Base> {
           auto c = std::make_unique<Client_IO_Ex>();
           return c->connect(url, Client_IO_Base::Options()) ? std::move(c) : nullptr;
         };
         const auto piece = [&](const std::string& name, const std::string& snap, bool after) {
           const bool ok = b.open(*client_, uri + "@" + snap) &&
                           (after ? b.backup_after(io, name, "full", 16, nullptr) : b.backup_to(io, name, "", 16, nullptr));
           if (ok) pieces.insert(name);
           return ok;
         };
         if (!(io.connect(url, Client_IO_Base::Options()) && piece("full", "s1", false) && piece("after", "s2", true) &&
               chain.load_from_newest(connect, "after") &&
               ceph::restore_chain_into(*client_, "ceph://" + POOL + "/" + target, chain, connect, {}, nullptr)))
           return false;
         outcome = image_sum(target) == image_sum(src + "@s2") ? "restored" : "differs";
         return true;
       },
       no_dropped_piece, clear_pieces},
  };

  au_test::Ceph_Fault_Injector injector;
  int total = 0, reported = 0;
  std::string per_scenario;
  std::map<std::string, int> tolerated;
  std::vector<std::string> silent, wrong, left;
  for (const Scenario& s : scenarios) {
    SCOPED_TRACE(s.name);
    injector.fail_call(0);
    std::string expected;
    ASSERT_TRUE(s.run(expected)) << logs_.dump();
    const int calls = injector.calls();
    s.reset();
    ASSERT_LT(0, calls);
    total += calls;
    per_scenario += std::string(per_scenario.empty() ? "" : ", ") + std::to_string(calls);
    for (int k = 1; k <= calls; ++k) {
      const std::string at = std::string(s.name) + ", call " + std::to_string(k);
      logs_.clear();
      coded_ = false;
      injector.fail_call(k);
      std::string outcome;
      const bool ok = s.run(outcome);
      const std::string failed = injector.failed();
      injector.fail_call(0);
      SCOPED_TRACE(failed + " failed (" + at + ")");
      if (ok) {  // then the outcome must be right
        ++tolerated[failed];
        if (outcome != expected) wrong.push_back(failed + " (" + at + "): " + outcome);
      } else {
        ++reported;
        bool said = false;
        for (const auto& r : logs_.records()) said = said || r.priority == LM_ERROR || r.priority == LM_EMERGENCY;
        if (!said && !coded_) silent.push_back(failed + " (" + at + ")");
        const std::string l = s.leftover();
        if (!l.empty()) left.push_back(l + " after " + failed + " (" + at + ")");
      }
      s.reset();
    }
  }
  EXPECT_TRUE(silent.empty()) << "failed without a line: " << silent.front();
  EXPECT_TRUE(wrong.empty()) << "succeeded with a wrong outcome: " << wrong.front();
  EXPECT_TRUE(left.empty()) << "left behind: " << left.front();
  std::string names;
  for (const auto& [fn, count] : tolerated) names += " " + fn + " x" + std::to_string(count);
  std::printf("fault injection: %zu scenarios, %d injected failures (%s), %d failed with a line, %d tolerated:%s\n",
              scenarios.size(), total, per_scenario.c_str(), reported, total - reported, names.c_str());
}

}  // namespace
