// Every librados/librbd call of a backup and restore failed in turn, on the sandbox: the
// scenario runs once to count its calls, then once per call with that call failing. Each
// run must end (no crash, no hang) either in success, where the failed call is one the
// library may do without, or in false with a failure line; nothing it made may be left.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "framework/client_io/client_io_ex.h"
#include "tests/integration/ceph/pool_fixture.h"
#include "tests/support/ceph_fault_injector.h"
#include "tests/support/temp_dir.h"
#include "utils/agent/ceph/ceph_image_backup.h"
#include "utils/agent/ceph/ceph_image_writer.h"
#include "utils/agent/io_connection_factory.h"

namespace {

using ceph_test::MiB;
using ceph_test::POOL;

class Fault_Injection : public ceph_test::Pool_Fixture {
 protected:
  // A new client, a full and an incremental backup, a new image, both pieces restored.
  bool backup_and_restore(const std::string& src, const std::string& target) {
    ceph::Ceph_Client client("admin", ceph::Ceph_Config(au_test::ceph_conf_text()).options(), true);
    Client_IO_Ex io;
    ceph::Ceph_Image_Backup b(factory_);
    ceph::Ceph_Image_Writer w(factory_);
    ceph::Ceph_Pool pool;
    ceph::Ceph_Image image;
    const std::string uri = "ceph://" + POOL + "/" + src;
    return client.error_code() == 0 && io.connect("file://" + dir_.path(), Client_IO_Base::Options()) &&
           b.open(client, uri + "@s1") && b.backup_to(io, "full", "", 16, nullptr) &&
           b.open(client, uri + "@s2") && b.backup_to(io, "incr", "s1", 16, nullptr) &&
           client.open_pool(POOL, pool) &&
           pool.new_image(target, 8 * MiB, image, 1, 22, 0, 0, false) &&
           w.open(client, "ceph://" + POOL + "/" + target) && w.write_from(io, "full", MiB, nullptr) &&
           w.write_from(io, "incr", MiB, nullptr);
  }

  au_test::Temp_Dir dir_;
  IO_Connection_Factory factory_;
};

TEST_F(Fault_Injection, every_ceph_call_of_a_backup_and_restore_fails_cleanly) {
  const std::string src = au_test::unique_ceph_name("fi-src"), target = src + "-r";
  ASSERT_TRUE(make_image(src, 8));
  cleanup_.image(target);
  {
    ceph::Ceph_Image image;
    ASSERT_TRUE(pool_.open_image(src, image, false));
    const std::string data(3 * MiB, 'x');
    ASSERT_EQ(int(data.size()), image.write(MiB, data.size(), data.data(), 0));
    ASSERT_TRUE(ceph_test::rbd("snap create --no-progress " + POOL + "/" + src + "@s1"));
    ASSERT_EQ(4096, image.write(6 * MiB, 4096, data.data(), 0));
    const std::string zeros(64 * 1024, '\0');  // a zero record over data the full piece wrote
    ASSERT_EQ(int(zeros.size()), image.write(2 * MiB, zeros.size(), zeros.data(), 0));
    ASSERT_TRUE(ceph_test::rbd("snap create --no-progress " + POOL + "/" + src + "@s2"));
  }
  const auto remove_target = [&] {
    ceph_test::rbd("rm --no-progress " + POOL + "/" + target + " >/dev/null 2>&1");
  };

  au_test::Ceph_Fault_Injector injector;
  ASSERT_TRUE(backup_and_restore(src, target)) << logs_.dump();
  const int calls = injector.calls();
  remove_target();
  ASSERT_LT(20, calls);

  std::map<std::string, int> tolerated;
  std::vector<std::string> silent, wrong;
  const auto sum = [](const std::string& rbd_path) {
    std::string out;
    au_test::run_ceph_cli("rbd export --no-progress " + POOL + "/" + rbd_path + " - | md5sum", &out);
    return out;
  };
  const std::string expected = sum(src + "@s2");
  int reported = 0;
  for (int k = 1; k <= calls; ++k) {
    logs_.clear();
    injector.fail_call(k);
    const bool ok = backup_and_restore(src, target);
    const std::string failed = injector.failed();
    injector.fail_call(0);
    if (ok) {  // then the restored image must be right
      ++tolerated[failed];
      if (sum(target) != expected) wrong.push_back(failed + " (call " + std::to_string(k) + ")");
      remove_target();
      continue;
    }
    ++reported;
    bool said = false;
    for (const auto& r : logs_.records()) said = said || r.priority == LM_ERROR || r.priority == LM_EMERGENCY;
    if (!said) silent.push_back(failed + " (call " + std::to_string(k) + ")");
    remove_target();
  }
  EXPECT_TRUE(silent.empty()) << "failed without a line: " << silent.front();
  EXPECT_TRUE(wrong.empty()) << "succeeded with a wrong image: " << wrong.front();
  std::string names;
  for (const auto& [fn, n] : tolerated) names += " " + fn + " x" + std::to_string(n);
  std::printf("fault injection: 1 scenario, %d injected failures, %d failed with a line, %d "
              "tolerated:%s\n", calls, reported, calls - reported, names.c_str());
}

}  // namespace
