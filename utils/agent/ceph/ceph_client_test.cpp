#include "utils/agent/ceph/ceph_client.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_snapshot.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

size_t unbound_pointers() {
  size_t n = 0;
#define AU_COUNT_UNBOUND(sym, kind) n += ceph::sym == nullptr;
  AU_LIBRADOS_SYMBOLS(AU_COUNT_UNBOUND)
  AU_LIBRBD_SYMBOLS(AU_COUNT_UNBOUND)
#undef AU_COUNT_UNBOUND
  return n;
}

// The Ceph packages of this machine provide every function, optional ones included.
TEST(Ceph_Client_Libraries, binds_the_installed_librados_and_librbd) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  ACE::debug(true);
  const bool bound = ceph::Ceph_Client::open_ceph_libraries();
  ACE::debug(false);
  ASSERT_TRUE(bound) << logs.dump();
  EXPECT_TRUE(static_cast<bool>(*ceph::Librados_Wrapper::instance()));
  EXPECT_TRUE(static_cast<bool>(*ceph::Librbd_Wrapper::instance()));
  EXPECT_EQ(0u, unbound_pointers());
  EXPECT_TRUE(logs.has_fragment(LM_DEBUG, " called Ceph_Client::open_ceph_libraries()\n"))
      << logs.dump();
  EXPECT_FALSE(logs.has_fragment(LM_TRACE, "Current version of")) << logs.dump();

  // The real library answers through the bound pointer.
  int major = 0, minor = 0, extra = 0;
  ceph::rbd_version(&major, &minor, &extra);
  EXPECT_GE(major, 1);
  EXPECT_TRUE(ceph::Ceph_Client::open_ceph_libraries());
}

TEST(Ceph_Client_Libraries, librbd_is_left_alone_when_librados_is_unusable) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  const std::string dir = au_test::fake_ceph_dir();
  ASSERT_FALSE(ceph::Librados_Wrapper::instance()->open("libfake_rados_noconnect", dir.c_str()));
  logs.clear();
  EXPECT_FALSE(ceph::Ceph_Client::open_ceph_libraries());
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
  EXPECT_FALSE(static_cast<bool>(*ceph::Librbd_Wrapper::instance()));
  // librbd's one chance to load is still there.
  EXPECT_TRUE(ceph::Librbd_Wrapper::instance()->open("libfake_rbd_full", dir.c_str()))
      << logs.dump();
}

// A client without a cluster handle refuses everything, each with its own line, and
// never reaches librados; bad URIs are refused before any cluster work.
TEST(Ceph_Client_Arguments, an_empty_id_leaves_a_client_that_refuses_everything) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  ceph::Ceph_Client client("", true);
  EXPECT_TRUE(logs.has_check("id is empty")) << logs.dump();
  EXPECT_EQ(0, client.error_code());
  EXPECT_EQ("", client.error());

  const std::string not_initialized =
      "Failed to connect to ceph cluster: the context wasn't initialized.\n";
  logs.clear();
  EXPECT_FALSE(client.connect());
  EXPECT_TRUE(logs.has(LM_ERROR, not_initialized));
  EXPECT_FALSE(client.set_configs(std::string()));
  EXPECT_FALSE(client.set_configs({{"mon_host", "127.0.0.1"}}, true));
  EXPECT_FALSE(client.connect({{"mon_host", "127.0.0.1"}}));
  std::vector<std::string> pools;
  EXPECT_FALSE(client.list_pool(pools));
  ceph::Ceph_Pool pool;
  EXPECT_FALSE(client.open_pool("rbd", pool));
  EXPECT_FALSE(client.open_pool(1ul, pool));
  EXPECT_FALSE(static_cast<bool>(pool));
  size_t checks = 0, refusals = 0;
  for (const auto& r : logs.records()) {
    checks += r.priority == LM_EMERGENCY &&
              r.text.find(", ctx_.ctx_ is NULL:\n") != std::string::npos;
    refusals += r.priority == LM_ERROR && r.text == not_initialized;
  }
  EXPECT_EQ(3u, checks) << logs.dump();  // both set_configs and connect(configs)
  EXPECT_EQ(4u, refusals) << logs.dump();

  ceph::Ceph_Image image;
  ceph::Ceph_Snapshot snap;
  logs.clear();
  EXPECT_FALSE(client.open_image("", "img", image, false));
  EXPECT_TRUE(logs.has_check("pool_name is empty"));
  EXPECT_FALSE(client.open_image("rbd", "", image, false));
  EXPECT_TRUE(logs.has_check("img_name is empty"));
  EXPECT_FALSE(client.open_snapshot("rbd", "img", "", snap, true));
  EXPECT_TRUE(logs.has_check("snap_name is empty"));

  EXPECT_FALSE(client.open_image("ceph://rbd/dir/img", image, false));
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Failed to open image by uri 'ceph://rbd/dir/img': unrecognized uri.\n"));
  EXPECT_FALSE(client.open_snapshot("ceph://rbd/img", snap, true));
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Failed to open snapshot by uri 'ceph://rbd/img': unrecognized uri.\n"));
  const auto count_calls = [](unsigned long, unsigned long, int) { return 0; };
  EXPECT_FALSE(client.diff_iterate("rbd img", "", count_calls));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to diff iterate over uri 'rbd img': invalid uri.\n"));
  EXPECT_FALSE(client.diff_iterate("ceph://rbd/img", "s1", count_calls));
  EXPECT_TRUE(logs.has(LM_ERROR, "Can't iterate over an image 'ceph://rbd/img' that using a "
                                 "snapshot 's1' as the starting point.\n"));

  EXPECT_EQ("ceph://rbd/vm1", ceph::Ceph_Client::to_uri("rbd", "vm1"));
  EXPECT_EQ("ceph://rbd/vm1@s1", ceph::Ceph_Client::to_uri("rbd", "vm1", "s1"));
}

}  // namespace
