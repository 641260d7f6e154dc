#include "utils/agent/ceph/ceph_client.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace {

// The Ceph packages of this machine provide every function, optional ones included.
TEST(Ceph_Client_Libraries, binds_the_installed_librados_and_librbd) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  ACE::debug(true);
  const bool bound = ceph::Ceph_Client::open_ceph_libraries();
  ACE::debug(false);
  ASSERT_TRUE(bound) << logs.dump();
  EXPECT_TRUE(au_test::unbound_rados_pointers().empty() && au_test::unbound_rbd_pointers().empty());
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

// A client without a cluster handle refuses everything before reaching librados.
TEST(Ceph_Client_Arguments, an_empty_id_leaves_a_client_that_refuses_everything) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  ceph::Ceph_Client client("", true);
  EXPECT_TRUE(logs.has_check("id is empty")) << logs.dump();
  EXPECT_EQ("", client.error());

  logs.clear();
  std::vector<std::string> pools;
  ceph::Ceph_Pool pool;
  EXPECT_FALSE(client.connect({{"mon_host", "127.0.0.1"}}));
  EXPECT_FALSE(client.connect());
  EXPECT_FALSE(client.list_pool(pools));
  EXPECT_FALSE(client.open_pool(1ul, pool));
  EXPECT_EQ(4u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has_check("ctx_.ctx_ is NULL"));
  EXPECT_EQ(3u, logs.count(LM_ERROR,
                           "Failed to connect to ceph cluster: the context wasn't "
                           "initialized.\n"));

  ceph::Ceph_Snapshot snap;
  EXPECT_FALSE(client.open_snapshot("rbd", "img", "", snap, true));
  EXPECT_TRUE(logs.has_check("snap_name is empty"));
  EXPECT_FALSE(
      client.diff_iterate("rbd img", "", [](unsigned long, unsigned long, int) { return 1; }));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to diff iterate over uri 'rbd img': invalid uri.\n"));
}

// list_pool's two calls against a librados whose answers can be steered by client id.
TEST(Ceph_Client_Pools, lists_names_and_refuses_a_changing_or_failing_listing) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  const std::string dir = au_test::fake_ceph_dir();
  ASSERT_TRUE(ceph::Librados_Wrapper::instance()->open("libfake_rados_pools", dir.c_str()));
  ASSERT_TRUE(ceph::Librbd_Wrapper::instance()->open("libfake_rbd_full", dir.c_str()));
  au_test::Log_Capture logs;
  std::vector<std::string> pools{"kept"};
  ceph::Ceph_Client steady("admin", true);
  ASSERT_TRUE(steady.connect());
  ASSERT_TRUE(steady.list_pool(pools)) << logs.dump();
  EXPECT_EQ((std::vector<std::string>{"kept", "rbd", "backup"}), pools);

  ceph::Ceph_Client grow("grow", true), empty("empty", true), fail("fail", true);
  EXPECT_FALSE(grow.list_pool(pools));
  EXPECT_TRUE(
      logs.has(LM_ERROR, "Unable to list RADOS pools: the count of pool changes during list.\n"));
  EXPECT_FALSE(empty.list_pool(pools));
  EXPECT_TRUE(logs.has_check("buf.p_ is NULL"));
  EXPECT_FALSE(fail.list_pool(pools));
  EXPECT_TRUE(logs.has(LM_ERROR, "Unable to list RADOS pools: code -5, msg Input/output error.\n"));
  EXPECT_EQ("Input/output error", fail.error());
  EXPECT_EQ(3u, pools.size());
}

}  // namespace
