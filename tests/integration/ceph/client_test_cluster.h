// What the client, pool and group tests share: a client connected to the sandbox cluster
// from its conf text, images and groups that are removed whatever happens to the test,
// and extents as `rbd diff` reports them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "framework/json/reader.h"
#include "tests/support/ceph_env.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_config.h"

namespace client_test {

// A connected client, or null after a test failure.
inline std::unique_ptr<ceph::Ceph_Client> connect_sandbox() {
  const ceph::Ceph_Config config(au_test::ceph_conf_text());
  EXPECT_TRUE(static_cast<bool>(config));
  auto client = std::make_unique<ceph::Ceph_Client>("admin", config.options(), true);
  if (client->error_code() != 0) {
    ADD_FAILURE() << "connect: " << client->error();
    return nullptr;
  }
  return client;
}

// Removes a sandbox image (its snapshots, protected ones too) when the test ends.
struct Image_Cleanup {
  std::string spec;  // pool/image
  ~Image_Cleanup() {
    std::string snaps;
    au_test::run_ceph_cli("rbd snap ls --format json " + spec + " 2>/dev/null", &snaps);
    json_spirit::Value list;
    if (json_spirit::read(snaps, list) && list.type() == json_spirit::array_type) {
      for (const auto& snap : list.get_array()) {
        const auto& fields = snap.get_obj();
        const auto guarded = fields.find("protected");
        if (guarded == fields.end() || guarded->second.type() != json_spirit::str_type ||
            guarded->second.get_str() != "true")
          continue;
        const auto& name = fields.at("name").get_str();
        au_test::run_ceph_cli("rbd snap unprotect " + spec + "@" + name + " 2>/dev/null", nullptr);
      }
    }
    au_test::run_ceph_cli("rbd snap purge --no-progress " + spec + " 2>/dev/null", nullptr);
    au_test::run_ceph_cli("rbd rm --no-progress " + spec + " 2>/dev/null", nullptr);
  }
};

// Removes a sandbox group when the test ends (before its images: declare it after them).
struct Group_Cleanup {
  std::string spec;  // pool/group
  ~Group_Cleanup() { au_test::run_ceph_cli("rbd group rm " + spec + " 2>/dev/null", nullptr); }
};

using Extent = std::tuple<uint64_t, uint64_t, bool>;  // offset, length, exists

// `rbd diff <args> --format json` as extents; empty after a test failure.
inline std::vector<Extent> rbd_diff(const std::string& args) {
  std::string out;
  std::vector<Extent> extents;
  if (!au_test::run_ceph_cli("rbd diff --format json " + args, &out)) {
    ADD_FAILURE() << "rbd diff " << args;
    return extents;
  }
  json_spirit::Value list;
  if (!json_spirit::read(out, list) || list.type() != json_spirit::array_type) {
    ADD_FAILURE() << "rbd diff output: " << out;
    return extents;
  }
  for (const auto& e : list.get_array()) {
    const auto& o = e.get_obj();
    const auto& exists = o.at("exists");
    extents.emplace_back(o.at("offset").get_uint64(), o.at("length").get_uint64(),
                         exists.type() == json_spirit::bool_type ? exists.get_bool()
                                                                 : exists.get_str() == "true");
  }
  return extents;
}

}  // namespace client_test
