// Ceph_Client on the sandbox cluster: configuration, pools, images and snapshots by name
// and URI, changed extents over URIs, and a cluster that does not answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/integration/ceph/pool_fixture.h"
#include "tests/support/http_test_server.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/librados_wrapper.h"

namespace {

using namespace ceph_test;
using Ceph_Client_On_Cluster = Pool_Fixture;

TEST(Ceph_Client_Connect, configures_connects_and_opens_pools) {
  AU_REQUIRE_CEPH_OR_SKIP();
  au_test::Log_Capture logs_;
  ceph::Ceph_Client client("admin", true);
  EXPECT_TRUE(client.set_configs({{"rados_osd_op_timeout", 15}}, false));  // a number
  EXPECT_TRUE(logs_.has(LM_WARNING,
                       "Found invalid RADOS option value type 5 for configuration "
                       "key rados_osd_op_timeout.\n"))
      << logs_.dump();
  logs_.clear();
  EXPECT_TRUE(client.set_configs({{"no_such_option", "1"}, {"fsid", "x"}}, true));
  EXPECT_EQ(1u, logs_.records().size()) << logs_.dump();  // the unknown one passes quietly
  EXPECT_TRUE(logs_.has(LM_ERROR,
                       "Failed to set RADOS configuration option 'fsid': code -22, "
                       "msg Invalid argument.\n"));
  EXPECT_FALSE(client.set_configs({{"no_such_option", "1"}}, false));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Found unknown RADOS configuration option 'no_such_option'.\n"));
  EXPECT_FALSE(client.set_configs("/nonexistent/ceph.conf"));
  EXPECT_TRUE(
      logs_.has(LM_ERROR, "Failed to read config file:code -2, msg No such file or directory.\n"));

  // A secret given as a secure string is applied like a string and never logged.
  const std::string secret = "AQBhZ2VudHV0aWwtdGVzdC1rZXk=";
  logs_.clear();
  EXPECT_TRUE(client.set_configs({{"key", json_spirit::Value::secure(secret)}}, false));
  char applied[64] = "";
  ASSERT_EQ(0, ceph::rados_conf_get(*client.context().ctx_, "key", applied, sizeof applied));
  EXPECT_EQ(secret, applied);
  EXPECT_TRUE(logs_.records().empty()) << logs_.dump();

  const ceph::Ceph_Config config(au_test::ceph_conf_text());
  ASSERT_TRUE(client.connect(config.options())) << logs_.dump();
  std::vector<std::string> pools{"kept"};
  ASSERT_TRUE(client.list_pool(pools));
  EXPECT_EQ("kept", pools.front());
  EXPECT_NE(pools.end(), std::find(pools.begin(), pools.end(), POOL));

  ceph::Ceph_Pool by_name, by_id;
  std::string out;
  ASSERT_TRUE(
      au_test::run_ceph_cli("ceph osd lspools | awk '$2==\"" + POOL + "\"{print $1}'", &out));
  ASSERT_TRUE(client.open_pool(std::stoul(out), by_id)) << out;
  EXPECT_EQ("", by_id.pool_name());
  ASSERT_TRUE(by_id.get_pool_name(out));
  EXPECT_EQ(POOL, out);

  logs_.clear();
  EXPECT_FALSE(client.open_pool("no-such-pool", by_name));
  EXPECT_EQ("No such file or directory", client.error());
  EXPECT_TRUE(logs_.has(LM_ERROR,
                       "Failed to open the io context of the pool 'no-such-pool': "
                       "code -2, msg No such file or directory.\n"));
  EXPECT_FALSE(client.open_pool(987654ul, by_id));
  EXPECT_TRUE(logs_.has(LM_ERROR,
                       "Failed to open the io context of the pool '987654': code -2, "
                       "msg No such file or directory.\n"))
      << logs_.dump();
}

TEST_F(Ceph_Client_On_Cluster, opens_by_uri_and_iterates_changes_over_uris) {
  const std::string name = au_test::unique_ceph_name("curi");
  {
    ceph::Ceph_Image image;
    ceph::Ceph_Snapshot s1, s2;
    ASSERT_TRUE(make_image(name, 16) && pool_.open_image(name, image, false)) << logs_.dump();
    const std::string data(65536, 'x');
    ASSERT_EQ(8192, image.write(0, 8192, data.data(), 0));
    ASSERT_TRUE(image.new_snapshot("s1", s1));
    ASSERT_EQ(65536, image.write(12 << 20, 65536, data.data(), 0));
    ASSERT_TRUE(image.new_snapshot("s2", s2));
    ASSERT_EQ(4096, image.write(15 << 20, 4096, data.data(), 0));  // only on the head
  }
  const std::string image_uri = ceph::Ceph_Client::to_uri(POOL, name);
  const std::string s2_uri = ceph::Ceph_Client::to_uri(POOL, name, "s2");

  ceph::Ceph_Image head;  // a snapshot URI opens the image; the snapshot part is ignored
  ASSERT_TRUE(client_->open_image(s2_uri, head, false)) << logs_.dump();
  EXPECT_EQ(name, head.image_name());
  ceph::Ceph_Snapshot snap;
  ASSERT_TRUE(client_->open_snapshot(s2_uri, snap, true)) << logs_.dump();
  char byte = 1;
  ASSERT_EQ(1, snap.read(15 << 20, 1, &byte, 0));
  EXPECT_EQ('\0', byte);

  logs_.clear();
  EXPECT_FALSE(client_->open_snapshot(image_uri, snap, true));
  EXPECT_TRUE(logs_.has(LM_ERROR,
                       "Failed to open snapshot by uri '" + image_uri + "': unrecognized uri.\n"));
  EXPECT_FALSE(client_->open_image(image_uri + "@", head, true));
  EXPECT_TRUE(
      logs_.has(LM_ERROR, "Failed to open image by uri '" + image_uri + "@': unrecognized uri.\n"));

  std::vector<Extent> seen;
  const auto collect = [&seen](unsigned long ofs, unsigned long len, int exists) {
    seen.emplace_back(ofs, len, exists != 0);
    return 1;  // go on
  };
  EXPECT_FALSE(client_->diff_iterate(image_uri, "s1", collect));
  EXPECT_TRUE(logs_.has(LM_ERROR, "Can't iterate over an image '" + image_uri +
                                     "' that using a snapshot 's1' as the starting point.\n"));
  ASSERT_TRUE(client_->diff_iterate(s2_uri, "s1", collect)) << logs_.dump();
  EXPECT_EQ(rbd_diff("--from-snap s1 " + POOL + "/" + name + "@s2"), seen);
  EXPECT_FALSE(seen.empty());
  seen.clear();
  ASSERT_TRUE(client_->diff_iterate(s2_uri, "", collect));
  EXPECT_EQ(rbd_diff(POOL + "/" + name + "@s2"), seen);
  seen.clear();
  ASSERT_TRUE(client_->diff_iterate(image_uri, "", collect));
  EXPECT_EQ(rbd_diff(POOL + "/" + name), seen);
}

// Short time-outs make a cluster that does not answer fail the connection, not hang it.
TEST(Ceph_Client_Connect, a_stopped_cluster_fails_within_the_time_outs) {
  AU_REQUIRE_CEPH_OR_SKIP();
  const ceph::Ceph_Config config(
      "[global]\nmon_host = 127.0.0.1:" + std::to_string(au_test::unused_local_port()) +
      "\nauth_client_required = none\nclient_mount_timeout = 3\n"
      "rados_mon_op_timeout = 3\n");
  au_test::Log_Capture logs_;
  ceph::Ceph_Client client("admin", config.options(), true);
  ASSERT_LT(client.error_code(), 0);
  EXPECT_TRUE(logs_.has(LM_ERROR, "Failed to connect to RADOS cluster: code " +
                                     std::to_string(client.error_code()) + ", msg " +
                                     client.error() + ".\n"))
      << logs_.dump();
}

}  // namespace
