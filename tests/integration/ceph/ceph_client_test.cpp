// Ceph_Client on the sandbox cluster: configuration from conf text and option maps,
// pools, images and snapshots by name and URI, changed extents over URIs, and a cluster
// that does not answer.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/integration/ceph/client_test_cluster.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace {

using client_test::Extent;

const std::string POOL = au_test::SANDBOX_RBD_POOL;

TEST(Ceph_Client_On_Cluster, configures_from_conf_text_and_option_maps) {
  AU_REQUIRE_CEPH_OR_SKIP();
  au_test::Log_Capture logs;
  auto client = client_test::connect_sandbox();
  ASSERT_TRUE(client);
  std::vector<std::string> pools{"kept"};
  ASSERT_TRUE(client->list_pool(pools)) << logs.dump();
  EXPECT_EQ("kept", pools.front());  // appended, not replaced
  EXPECT_NE(pools.end(), std::find(pools.begin(), pools.end(), POOL));
  EXPECT_EQ("", client->error());

  // Option maps on a client that is not connected yet.
  ceph::Ceph_Client fresh("admin", true);
  logs.clear();
  EXPECT_TRUE(fresh.set_configs({{"rados_osd_op_timeout", 15}}, false));
  EXPECT_TRUE(logs.has(LM_WARNING, "Found invalid RADOS option value type 5 for configuration "
                                   "key rados_osd_op_timeout.\n")) << logs.dump();

  logs.clear();
  EXPECT_TRUE(fresh.set_configs({{"no_such_rados_option", "1"}, {"rados_mon_op_timeout", "7"}},
                                true));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();  // ignored quietly without debugging
  ceph::Ceph_Client::Options unknown_first{{"a_no_such_rados_option", "1"},
                                           {"rados_mon_op_timeout", "9"}};
  EXPECT_FALSE(fresh.set_configs(unknown_first, false));
  EXPECT_EQ(-2, fresh.error_code());
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Found unknown RADOS configuration option 'a_no_such_rados_option'.\n"));

  // A value librados refuses is reported and passed over.
  logs.clear();
  EXPECT_TRUE(fresh.set_configs({{"rados_osd_op_timeout", "soon"}, {"fsid", "x"}}, false));
  EXPECT_TRUE(logs.has_fragment(
      LM_ERROR, "Failed to set RADOS configuration option 'fsid': code -22, msg Invalid argument.\n"))
      << logs.dump();
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "option 'rados_osd_op_timeout': code -22, msg "))
      << logs.dump();

  logs.clear();
  EXPECT_FALSE(fresh.set_configs("/nonexistent/ceph.conf"));
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Failed to read config file:code -2, msg No such file or directory.\n"))
      << logs.dump();
  ASSERT_TRUE(fresh.set_configs(au_test::ceph_conf_path()));
  ASSERT_TRUE(fresh.connect()) << logs.dump();
  std::vector<std::string> again;
  EXPECT_TRUE(fresh.list_pool(again));
  EXPECT_NE(again.end(), std::find(again.begin(), again.end(), POOL));
}

uint64_t pool_id(const std::string& name) {
  std::string out;
  EXPECT_TRUE(au_test::run_ceph_cli("ceph osd pool ls detail --format json", &out));
  json_spirit::Value pools;
  if (!json_spirit::read(out, pools)) return 0;
  for (const auto& p : pools.get_array())
    if (p.get_obj().at("pool_name").get_str() == name) return p.get_obj().at("pool_id").get_uint64();
  return 0;
}

TEST(Ceph_Client_On_Cluster, opens_pools_by_name_and_by_id) {
  AU_REQUIRE_CEPH_OR_SKIP();
  au_test::Log_Capture logs;
  auto client = client_test::connect_sandbox();
  ASSERT_TRUE(client);

  ceph::Ceph_Pool by_name;
  ASSERT_TRUE(client->open_pool(POOL, by_name)) << logs.dump();
  EXPECT_EQ(POOL, by_name.pool_name());
  EXPECT_TRUE(by_name.context().close_on_destruction_);
  EXPECT_EQ(client->context().ctx_, by_name.context().ctx_);  // the cluster is shared

  const uint64_t id = pool_id(POOL);
  ASSERT_NE(0u, id);
  ceph::Ceph_Pool by_id;
  ASSERT_TRUE(client->open_pool(static_cast<unsigned long>(id), by_id)) << logs.dump();
  EXPECT_EQ("", by_id.pool_name());
  std::string name;
  ASSERT_TRUE(by_id.get_pool_name(name));
  EXPECT_EQ(POOL, name);

  logs.clear();
  ceph::Ceph_Pool missing;
  EXPECT_FALSE(client->open_pool("no-such-pool", missing));
  EXPECT_FALSE(static_cast<bool>(missing));
  EXPECT_EQ("No such file or directory", client->error());
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open the io context of the pool 'no-such-pool': "
                                 "code -2, msg No such file or directory.\n")) << logs.dump();
  EXPECT_FALSE(client->open_pool(987654ul, missing));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open the io context of the pool '987654': code -2, "
                                 "msg No such file or directory.\n")) << logs.dump();

  // A client that does not close on destruction hands that on to its pools.
  const ceph::Ceph_Config config(au_test::ceph_conf_text());
  ceph::Ceph_Client keeper("admin", config.options(), false);
  ceph::Ceph_Pool kept;
  ASSERT_TRUE(keeper.open_pool(POOL, kept));
  EXPECT_FALSE(kept.context().close_on_destruction_);
}

// Writes `len` bytes of `fill` at `ofs`.
void write_bytes(ceph::Ceph_Image& image, uint64_t ofs, uint64_t len, char fill) {
  const std::string data(len, fill);
  ASSERT_EQ(static_cast<int>(len), image.write(ofs, len, data.data(), 0));
}

TEST(Ceph_Client_On_Cluster, opens_by_uri_and_iterates_changes_over_uris) {
  AU_REQUIRE_CEPH_OR_SKIP();
  au_test::Log_Capture logs;
  auto client = client_test::connect_sandbox();
  ASSERT_TRUE(client);
  const std::string name = au_test::unique_ceph_name("curi");
  client_test::Image_Cleanup cleanup{POOL + "/" + name};
  {
    ceph::Ceph_Pool pool;
    ceph::Ceph_Image image;
    ASSERT_TRUE(client->open_pool(POOL, pool));
    ASSERT_TRUE(pool.new_image(name, 16 << 20, image, 1, 22, 0, 0, false)) << logs.dump();
    ceph::Ceph_Snapshot s1, s2;
    write_bytes(image, 0, 8192, 'a');
    write_bytes(image, 5 << 20, 4096, 'b');
    ASSERT_TRUE(image.new_snapshot("s1", s1)) << logs.dump();
    write_bytes(image, 12 << 20, 65536, 'c');
    ASSERT_TRUE(image.new_snapshot("s2", s2)) << logs.dump();
    write_bytes(image, 15 << 20, 4096, 'd');  // only on the head
  }
  const std::string image_uri = ceph::Ceph_Client::to_uri(POOL, name);
  const std::string s2_uri = ceph::Ceph_Client::to_uri(POOL, name, "s2");

  ceph::Ceph_Image image;
  ASSERT_TRUE(client->open_image(image_uri, image, true)) << logs.dump();
  EXPECT_EQ(name, image.image_name());
  EXPECT_EQ(POOL, image.pool_name());
  ceph::Ceph_Image head_of_snapshot_uri;  // the snapshot part is ignored
  ASSERT_TRUE(client->open_image(s2_uri, head_of_snapshot_uri, false));
  EXPECT_EQ(16u << 20, head_of_snapshot_uri.size());
  ceph::Ceph_Snapshot snap;
  ASSERT_TRUE(client->open_snapshot(s2_uri, snap, true)) << logs.dump();
  EXPECT_EQ("s2", snap.snapshot_name());
  char byte = 0;
  ASSERT_EQ(1, snap.read(15 << 20, 1, &byte, 0));
  EXPECT_EQ('\0', byte);  // written after s2

  logs.clear();
  EXPECT_FALSE(client->open_snapshot(image_uri, snap, true));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open snapshot by uri '" + image_uri +
                                     "': unrecognized uri.\n"));
  EXPECT_FALSE(client->open_image("ceph://" + POOL + "/" + name + "@", image, true));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open image by uri 'ceph://" + POOL + "/" + name +
                                     "@': unrecognized uri.\n"));
  EXPECT_FALSE(client->open_snapshot(ceph::Ceph_Client::to_uri(POOL, name, "s9"), snap, true));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open snapshot 's9' of image '" + name +
                                     "': code 2, msg No such file or directory.\n")) << logs.dump();

  std::vector<Extent> seen;
  const auto collect = [&seen](unsigned long ofs, unsigned long len, int exists) {
    seen.emplace_back(ofs, len, exists != 0);
    return 1;  // go on
  };
  EXPECT_FALSE(client->diff_iterate(image_uri, "s1", collect));
  EXPECT_TRUE(logs.has(LM_ERROR, "Can't iterate over an image '" + image_uri +
                                     "' that using a snapshot 's1' as the starting point.\n"));
  EXPECT_TRUE(seen.empty());

  ASSERT_TRUE(client->diff_iterate(s2_uri, "s1", collect)) << logs.dump();
  EXPECT_EQ(client_test::rbd_diff("--from-snap s1 " + POOL + "/" + name + "@s2"), seen);
  EXPECT_FALSE(seen.empty());

  seen.clear();
  ASSERT_TRUE(client->diff_iterate(s2_uri, "", collect)) << logs.dump();
  EXPECT_EQ(client_test::rbd_diff(POOL + "/" + name + "@s2"), seen);

  seen.clear();
  ASSERT_TRUE(client->diff_iterate(image_uri, "", collect)) << logs.dump();
  EXPECT_EQ(client_test::rbd_diff(POOL + "/" + name), seen);

  seen.clear();
  EXPECT_FALSE(client->diff_iterate(ceph::Ceph_Client::to_uri(POOL, name + "-gone"), "", collect));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open image '" + name +
                                     "-gone': code 2, msg No such file or directory.\n"));
}

// A port on loopback that nothing listens on.
int closed_port() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(addr);
  bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
  getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  close(fd);
  return ntohs(addr.sin_port);
}

// Short time-outs make a cluster that does not answer fail the connection, not hang it.
TEST(Ceph_Client_On_Cluster, a_stopped_cluster_fails_within_the_time_outs) {
  AU_REQUIRE_CEPH_OR_SKIP();
  const int port = closed_port();
  std::ostringstream conf;
  conf << "[global]\n"
       << "mon_host = 127.0.0.1:" << port << "\n"
       << "auth_client_required = none\n"
       << "client_mount_timeout = 3\n"
       << "rados_mon_op_timeout = 3\n"
       << "rados_osd_op_timeout = 3\n"
       << "ms_connection_idle_timeout = 3\n";
  const ceph::Ceph_Config config(conf.str());
  au_test::Log_Capture logs;
  ceph::Ceph_Client client("admin", config.options(), true);
  ASSERT_LT(client.error_code(), 0);
  EXPECT_FALSE(client.error().empty());
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to connect to RADOS cluster: code " +
                                     std::to_string(client.error_code()) + ", msg " +
                                     client.error() + ".\n")) << logs.dump();
  std::vector<std::string> pools;
  EXPECT_FALSE(client.list_pool(pools));  // a handle that never connected
  EXPECT_TRUE(pools.empty());
}

}  // namespace
