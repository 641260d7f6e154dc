// Binding librados and librbd from fake libraries that lack chosen functions. Binding is
// once per process, so every test here runs alone (ctest gives each its own process) and
// binds each library once.
#include "utils/agent/ceph/ceph_symbols.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "utils/agent/ceph/ceph_client.h"

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"

namespace {

using au_test::unbound_rados_pointers;
using au_test::unbound_rbd_pointers;
using ceph::Librados_Wrapper;
using ceph::Librbd_Wrapper;

std::string undefined_symbol(const std::string& lib, const std::string& sym) {
  return au_test::fake_ceph_dir() + "/" + lib + ".so: undefined symbol: " + sym;
}

std::string not_supported(const std::string& lib, const std::string& sym, const std::string& fake) {
  return "Current version of " + lib + " doesn't support " + sym + ": " + undefined_symbol(fake, sym) + "\n";
}

TEST(Ceph_Binding, old_releases_bind_without_their_optional_functions) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  // A trailing separator on the directory is folded into the one joint.
  ASSERT_TRUE(Librados_Wrapper::instance()->open("libfake_rados_old", (au_test::fake_ceph_dir() + "/").c_str()))
      << logs.dump();
  ASSERT_TRUE(Librbd_Wrapper::instance()->open("libfake_rbd_old", au_test::fake_ceph_dir().c_str()))
      << logs.dump();

  const std::vector<std::string> rados_optional = {"rados_create2", "rados_ioctx_create2",
                                                   "rados_get_min_compatible_client", "rados_version",
                                                   "rados_cluster_fsid"};
  EXPECT_EQ(rados_optional, unbound_rados_pointers());
  for (const std::string& sym : rados_optional)
    EXPECT_TRUE(logs.has(LM_TRACE, not_supported("librados", sym, "libfake_rados_old"))) << logs.dump();
  // Exactly the 50 optional librbd functions stay null, each noted once at trace level.
  EXPECT_EQ(50u, unbound_rbd_pointers().size());
  EXPECT_NE(nullptr, ceph::rbd_snap_remove);
  for (const std::string sym : {"rbd_version", "rbd_list2", "rbd_group_image_list_cleanup"})
    EXPECT_TRUE(logs.has(LM_TRACE, not_supported("librbd", sym, "libfake_rbd_old"))) << logs.dump();
  // The asynchronous table: all 15 optional, null here too, each noted once.
  EXPECT_EQ(nullptr, ceph::rbd_aio_write);
  EXPECT_TRUE(logs.has(LM_TRACE, not_supported("librbd", "rbd_aio_write_zeroes", "libfake_rbd_old")));
  EXPECT_EQ(70u, logs.records().size()) << logs.dump();

  // Users of an optional function check it first and name it in their error.
  logs.clear();
  EXPECT_TRUE(AU_CEPH_LACKS_SYMBOL(rbd_group_snap_create));
  EXPECT_FALSE(AU_CEPH_LACKS_SYMBOL(rbd_diff_iterate));
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to get symbol rbd_group_snap_createThis version of Ceph doesn't "
                                 "support it.\n"));
}

TEST(Ceph_Binding, a_missing_required_function_stops_the_binding_there_for_good) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  const std::string dir = au_test::fake_ceph_dir();
  EXPECT_FALSE(Librados_Wrapper::instance()->open("libfake_rados_noconnect", dir.c_str()));
  EXPECT_FALSE(Librbd_Wrapper::instance()->open("libfake_rbd_noclose", dir.c_str()));
  EXPECT_FALSE(static_cast<bool>(*Librados_Wrapper::instance()));
  EXPECT_FALSE(static_cast<bool>(*Librbd_Wrapper::instance()));

  // What came before the gap is bound and stays so; nothing after it was tried.
  EXPECT_NE(nullptr, ceph::rados_conf_get);
  EXPECT_NE(nullptr, ceph::rbd_open_by_id_read_only);
  const std::vector<std::string> rados = unbound_rados_pointers(), rbd = unbound_rbd_pointers();
  ASSERT_EQ(11u, rados.size());
  EXPECT_EQ("rados_connect", rados.front());
  ASSERT_EQ(67u, rbd.size());
  EXPECT_EQ("rbd_close", rbd[0]);
  EXPECT_EQ("rbd_resize", rbd[1]);
  EXPECT_EQ(2u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to load librados symbol rados_connect : " +
                                     undefined_symbol("libfake_rados_noconnect", "rados_connect") + "\n"))
      << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to load librbd symbol rbd_close : " +
                                     undefined_symbol("libfake_rbd_noclose", "rbd_close") + "\n"))
      << logs.dump();

  // A second open, even of a complete library, does not try again.
  logs.clear();
  EXPECT_FALSE(Librbd_Wrapper::instance()->open("libfake_rbd_full", dir.c_str()));
  EXPECT_EQ(nullptr, ceph::rbd_resize);
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

TEST(Ceph_Binding, a_missing_library_fails_with_the_loader_error_and_no_fallback) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  EXPECT_FALSE(Librados_Wrapper::instance()->open("libagentutil_no_such_rados", nullptr));
  EXPECT_FALSE(Librados_Wrapper::instance()->open(nullptr, nullptr));  // the default is not tried
  // The installed librbd would be found by its bare name; the named directory has none.
  EXPECT_FALSE(Librbd_Wrapper::instance()->open("librbd", "/nonexistent-agentutil-dir"));
  EXPECT_EQ(nullptr, dlopen("librbd.so.1", RTLD_LAZY | RTLD_NOLOAD));
  EXPECT_EQ(19u, unbound_rados_pointers().size());
  EXPECT_EQ(72u, unbound_rbd_pointers().size());

  const auto records = logs.records();
  ASSERT_EQ(2u, records.size()) << logs.dump();
  EXPECT_EQ(LM_ERROR, records[0].priority);
  EXPECT_EQ(0u, records[0].text.find("Failed to open dll 'librados': libagentutil_no_such_rados")) << records[0].text;
  const std::string& rbd = records[1].text;
  EXPECT_EQ(0u, rbd.find("Failed to open dll 'librbd' form path /nonexistent-agentutil-dir/librbd: ")) << rbd;
  EXPECT_NE(std::string::npos, rbd.find("No such file or directory")) << rbd;
  EXPECT_EQ(".\n", rbd.substr(rbd.size() - 2)) << rbd;
}

// Hosts with only the runtime packages (librados2, librbd1) have no "librados.so" link.
// The parent hides both development links in a private mount namespace (an overlay whose
// upper layer holds whiteouts) and runs this same test there, where the child binds.
constexpr const char* LINKS_HIDDEN_ENV = "AU_TEST_CEPH_DEV_LINKS_HIDDEN";

std::string directory_of(const char* soname) {
  void* handle = dlopen(soname, RTLD_LAZY);
  if (handle == nullptr) return std::string();
  char dir[PATH_MAX] = "";
  dlinfo(handle, RTLD_DI_ORIGIN, dir);
  dlclose(handle);
  return dir;
}

std::string run_and_read(const std::string& command, int& status) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return out;
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  status = pclose(pipe);
  return out;
}

TEST(Ceph_Binding, default_names_fall_back_to_sonames_without_development_links) {
  if (std::getenv(LINKS_HIDDEN_ENV) != nullptr) {
    ASSERT_EQ(nullptr, dlopen("librados.so", RTLD_LAZY));  // the links are really hidden
    ASSERT_EQ(nullptr, dlopen("librbd.so", RTLD_LAZY));
    au_test::Log_Capture logs;
    EXPECT_TRUE(ceph::Ceph_Client::open_ceph_libraries()) << logs.dump();
    EXPECT_TRUE(logs.records().empty()) << logs.dump();
    return;
  }
  const std::string rados_dir = directory_of("librados.so.2");
  ASSERT_FALSE(rados_dir.empty()) << "librados2 is not installed";
  ASSERT_EQ(rados_dir, directory_of("librbd.so.1"));
  au_test::Temp_Dir tmp;
  const std::string whiteouts = tmp.path() + "/whiteouts";
  ASSERT_EQ(0, mkdir(whiteouts.c_str(), 0755));
  for (const char* link : {"/librados.so", "/librbd.so"}) {
    if (mknod((whiteouts + link).c_str(), S_IFCHR | 0600, makedev(0, 0)) != 0)
      GTEST_SKIP() << "cannot make overlay whiteouts here (not root)";
  }
  char self[PATH_MAX] = "";
  ASSERT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
  const std::string test_name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::string command = std::string(LINKS_HIDDEN_ENV) + "=1 unshare -m --propagation private sh -c '" +
                              "mount -t overlay overlay -o lowerdir=" + whiteouts + ":" + rados_dir + " " +
                              rados_dir + " || exit 77; exec \"$0\" --gtest_filter=Ceph_Binding." + test_name +
                              "' " + self + " 2>&1";
  int status = -1;
  const std::string out = run_and_read(command, status);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
    GTEST_SKIP() << "no private mount namespace here: " << out;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << out;
  EXPECT_NE(std::string::npos, out.find("[  PASSED  ] 1 test")) << out;
}

TEST(Ceph_Binding, close_clears_every_pointer_and_open_does_not_bind_again) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  const std::string dir = au_test::fake_ceph_dir();
  ASSERT_TRUE(Librados_Wrapper::instance()->open("libfake_rados_full", dir.c_str())) << logs.dump();
  ASSERT_TRUE(Librbd_Wrapper::instance()->open("libfake_rbd_full", dir.c_str())) << logs.dump();
  EXPECT_TRUE(unbound_rados_pointers().empty() && unbound_rbd_pointers().empty());

  Librados_Wrapper::instance()->close();
  Librbd_Wrapper::instance()->close();
  EXPECT_FALSE(static_cast<bool>(*Librbd_Wrapper::instance()));
  EXPECT_FALSE(Librbd_Wrapper::instance()->open("libfake_rbd_full", dir.c_str()));
  EXPECT_EQ(19u, unbound_rados_pointers().size());
  EXPECT_EQ(72u, unbound_rbd_pointers().size());
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

}  // namespace
