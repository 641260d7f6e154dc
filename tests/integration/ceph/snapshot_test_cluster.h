// A connection to the sandbox cluster's RBD pool made with the bound librados/librbd
// functions, so image and snapshot tests can open handles without the pool and client
// classes in between.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "framework/json/reader.h"
#include "framework/json/value.h"
#include "utils/agent/block.h"
#include "utils/agent/ceph/changed_blocks.h"

#include "tests/support/ceph_env.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_context.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_snapshot.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace au_test {

// `rbd diff` of `rbd_path` as extents, each widened to the chunk grid as the library does,
// then sorted and merged; holes are left out when `skip_holes`.
inline Blocks rbd_diff(const std::string& args, uint64_t chunk, bool skip_holes) {
  std::string out;
  EXPECT_TRUE(au_test::run_ceph_cli("rbd diff --format json " + args, &out)) << args;
  json_spirit::Value doc;
  Blocks blocks;
  if (!json_spirit::read(out, doc) || doc.type() != json_spirit::array_type) {
    ADD_FAILURE() << "unreadable rbd diff output: " << out;
    return blocks;
  }
  for (const auto& entry : doc.get_array()) {
    const auto& obj = entry.get_obj();
    const json_spirit::Value& exists = obj.at("exists");
    const bool data = exists.type() == json_spirit::bool_type ? exists.get_bool()
                                                              : exists.get_str() == "true";
    if (skip_holes && !data) continue;
    blocks.push_back(ceph::chunk_aligned_block(obj.at("offset").get_uint64(),
                                               obj.at("length").get_uint64(), chunk));
  }
  ceph::sort_and_merge_blocks(blocks);
  return blocks;
}

// The entries of `blocks` that lie inside [lo, hi).
inline Blocks within(const Blocks& blocks, uint64_t lo, uint64_t hi) {
  Blocks inside;
  for (const Block& b : blocks)
    if (b.offset >= lo && b.end() <= hi) inside.push_back(b);
  return inside;
}

inline std::string dump(const Blocks& blocks) {
  std::string text;
  for (const Block& b : blocks)
    text += "{" + std::to_string(b.offset) + "," + std::to_string(b.length) + "} ";
  return text;
}

// True when one entry of `blocks` holds all of `extent`.
inline bool covers(const Blocks& blocks, const Block& extent) {
  for (const Block& b : blocks)
    if (b.offset <= extent.offset && extent.end() <= b.end()) return true;
  return false;
}

class Test_Cluster {
 public:
  bool connect() {
    if (!ceph::Ceph_Client::open_ceph_libraries()) return false;
    ctx_.ctx_ = ceph::make_cluster_var();
    if (ceph::rados_create(ctx_.ctx_.get(), "admin") != 0) return false;
    if (ceph::rados_conf_read_file(*ctx_.ctx_, ceph_conf_path().c_str()) != 0) return false;
    if (ceph::rados_connect(*ctx_.ctx_) != 0) return false;
    ctx_.io_ctx_ = ceph::make_pool_var();
    return ceph::rados_ioctx_create(*ctx_.ctx_, SANDBOX_RBD_POOL, ctx_.io_ctx_.get()) == 0;
  }

  bool create_image(const std::string& name, uint64_t size, int order) {
    return ceph::rbd_create(*ctx_.io_ctx_, name.c_str(), size, &order) == 0;
  }

  bool open_image(const std::string& name, ceph::Ceph_Image& image) {
    ceph::Ceph_Context ctx = ctx_;
    ctx.img_ctx_ = ceph::make_image_var();
    if (ceph::rbd_open(*ctx.io_ctx_, name.c_str(), ctx.img_ctx_.get(), nullptr) != 0) return false;
    image = ceph::Ceph_Image(ctx);
    image.pool_name(SANDBOX_RBD_POOL);
    image.image_name(name);
    return true;
  }

  bool open_snapshot(const std::string& name, const std::string& snap,
                     ceph::Ceph_Snapshot& snapshot) {
    ceph::Ceph_Context ctx = ctx_;
    ctx.img_ctx_ = ceph::make_snapshot_var();
    if (ceph::rbd_open_read_only(*ctx.io_ctx_, name.c_str(), ctx.img_ctx_.get(), snap.c_str()) !=
        0)
      return false;
    snapshot = ceph::Ceph_Snapshot(ctx);
    snapshot.pool_name(SANDBOX_RBD_POOL);
    snapshot.image_name(name);
    snapshot.snapshot_name(snap);
    return true;
  }

  // Snapshots must be unprotected by then.
  static void remove_image_with_snapshots(const std::string& name) {
    const std::string rbd_path = std::string(SANDBOX_RBD_POOL) + "/" + name;
    run_ceph_cli("rbd snap purge --no-progress " + rbd_path, nullptr);
    run_ceph_cli("rbd rm --no-progress " + rbd_path, nullptr);
  }

  ceph::Ceph_Context& context() { return ctx_; }

 private:
  ceph::Ceph_Context ctx_;
};

}  // namespace au_test
