// What the client, pool and group tests share: a client connected from the sandbox's conf
// text, the sandbox pool opened through it, images and groups removed whatever happens to
// the test, and `rbd diff` extents.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "framework/json/reader.h"
#include "tests/support/ceph_env.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_config.h"
#include "utils/agent/ceph/ceph_pool.h"

namespace client_test {

inline std::unique_ptr<ceph::Ceph_Client> connect_sandbox() {
  const ceph::Ceph_Config config(au_test::ceph_conf_text());
  auto client = std::make_unique<ceph::Ceph_Client>("admin", config.options(), true);
  if (client->error_code() == 0) return client;
  ADD_FAILURE() << "connect: " << client->error();
  return nullptr;
}

// rbd CLI commands that undo what a test made, run when the test ends.
struct Cleanup {
  std::vector<std::string> commands;
  ~Cleanup() {
    for (const auto& c : commands) au_test::run_ceph_cli(c + " >/dev/null 2>&1", nullptr);
  }
  void image(const std::string& rbd_path) {  // pool/image, protected snapshots too
    commands.push_back("rbd snap ls " + rbd_path + " | awk 'NR>1{print $2}' | xargs -rI{} rbd -c " +
                       au_test::ceph_conf_path() + " snap unprotect " + rbd_path + "@{}");
    commands.push_back("rbd snap purge --no-progress " + rbd_path);
    commands.push_back("rbd rm --no-progress " + rbd_path);
  }
  void group(const std::string& rbd_path) { commands.insert(commands.begin(), "rbd group rm " + rbd_path); }
};

// The sandbox pool opened through a connected client; log lines and cleanup per test.
class Pool_Fixture : public ::testing::Test {
 protected:
  void SetUp() override {
    AU_REQUIRE_CEPH_OR_SKIP();
    client_ = connect_sandbox();
    ASSERT_TRUE(client_ && client_->open_pool(au_test::SANDBOX_RBD_POOL, pool_));
  }
  std::unique_ptr<ceph::Ceph_Client> client_;
  ceph::Ceph_Pool pool_;
  au_test::Log_Capture logs_;
  Cleanup cleanup_;
};

using Extent = std::tuple<uint64_t, uint64_t, bool>;  // offset, length, exists

inline std::vector<Extent> rbd_diff(const std::string& args) {
  std::string out;
  json_spirit::Value list;
  std::vector<Extent> extents;
  EXPECT_TRUE(au_test::run_ceph_cli("rbd diff --format json " + args, &out));
  if (!json_spirit::read(out, list) || list.type() != json_spirit::array_type) return extents;
  for (const auto& e : list.get_array()) {
    const auto& o = e.get_obj();
    extents.emplace_back(o.at("offset").get_uint64(), o.at("length").get_uint64(),
                         o.at("exists").get_str() == "true");
  }
  return extents;
}

}  // namespace client_test
