// What the ceph tests share: a client connected from the sandbox's conf text with the
// sandbox pool opened through it, images made by the rbd tool (its default features),
// cleanup that runs whatever happens to the test, and `rbd diff` read back as extents.
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
#include "utils/agent/block.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_config.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_snapshot.h"
#include "utils/agent/ceph/changed_blocks.h"

namespace ceph_test {

const std::string POOL = au_test::SANDBOX_RBD_POOL;
constexpr uint64_t MiB = 1 << 20;

inline bool rbd(const std::string& args) { return au_test::run_ceph_cli("rbd " + args, nullptr); }

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
  void image(const std::string& name) {  // protected snapshots too
    const std::string path = POOL + "/" + name;
    commands.push_back("rbd snap ls " + path + " | awk 'NR>1{print $2}' | xargs -rI{} rbd -c " +
                       au_test::ceph_conf_path() + " snap unprotect " + path + "@{}");
    commands.push_back("rbd snap purge --no-progress " + path);
    commands.push_back("rbd rm --no-progress " + path);
  }
  void group(const std::string& name) { commands.insert(commands.begin(), "rbd group rm " + POOL + "/" + name); }
};

class Pool_Fixture : public ::testing::Test {
 protected:
  void SetUp() override {
    AU_REQUIRE_CEPH_OR_SKIP();
    client_ = connect_sandbox();
    ASSERT_TRUE(client_ && client_->open_pool(POOL, pool_));
  }
  // A new image of `mib` MiB in 4 MiB objects, removed when the test ends.
  bool make_image(const std::string& name, uint64_t mib) {
    cleanup_.image(name);
    return rbd("create --object-size 4M --size " + std::to_string(mib) + "M " + POOL + "/" + name);
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
  EXPECT_TRUE(au_test::run_ceph_cli("rbd diff --format json " + args, &out)) << args;
  if (!json_spirit::read(out, list) || list.type() != json_spirit::array_type) {
    ADD_FAILURE() << "unreadable rbd diff output: " << out;
    return extents;
  }
  for (const auto& e : list.get_array()) {
    const auto& o = e.get_obj();
    const json_spirit::Value& exists = o.at("exists");
    extents.emplace_back(o.at("offset").get_uint64(), o.at("length").get_uint64(),
                         exists.type() == json_spirit::bool_type ? exists.get_bool()
                                                                 : exists.get_str() == "true");
  }
  return extents;
}

// The same widened to the chunk grid as the library does, sorted and merged; holes are
// left out when `skip_holes`.
inline Blocks rbd_diff(const std::string& args, uint64_t chunk, bool skip_holes) {
  Blocks blocks;
  for (const auto& [offset, length, exists] : rbd_diff(args))
    if (exists || !skip_holes) blocks.push_back(ceph::chunk_aligned_block(offset, length, chunk));
  ceph::sort_and_merge_blocks(blocks);
  return blocks;
}

inline std::string dump(const Blocks& blocks) {
  std::string text;
  for (const Block& b : blocks) text += "{" + std::to_string(b.offset) + "," + std::to_string(b.length) + "} ";
  return text;
}

// True when one entry of `blocks` holds all of `extent`.
inline bool covers(const Blocks& blocks, const Block& extent) {
  for (const Block& b : blocks)
    if (b.offset <= extent.offset && extent.end() <= b.end()) return true;
  return false;
}

}  // namespace ceph_test
