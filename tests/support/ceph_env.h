// How the ceph-labelled tests reach the sandbox cluster of scripts/ceph-sandbox: its conf
// comes from $AGENTUTIL_CEPH_CONF, a test without one skips (fails when
// $AGENTUTIL_REQUIRE_CEPH is "1", as under CI), and the ceph/rbd/rados tools set up and
// check state beside the library.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace au_test {

// The pool that every sandbox cluster has, initialised for RBD.
constexpr const char* SANDBOX_RBD_POOL = "rbd";

std::string ceph_conf_path();  // "" when unset
bool ceph_required();
// "" when a conf is set and readable, else the reason why ceph tests cannot run.
std::string ceph_unavailable_reason();
// The text of the conf file ("" when unavailable), for clients that take conf text.
std::string ceph_conf_text();

// "<prefix>-<pid>-<n>": unique among test processes sharing one cluster.
std::string unique_ceph_name(const std::string& prefix);

// The sandbox's S3 gateway, from s3.env beside the conf.
struct Sandbox_S3 {
  std::string url;  // s3://127.0.0.1:PORT
  std::string access_key;
  std::string secret_key;
};
// False when the sandbox has no gateway (or no conf is set).
bool sandbox_s3(Sandbox_S3& out, const std::string& conf = ceph_conf_path());

// Runs "rbd diff ...", "ceph osd ..." or "rados ..." through /bin/sh (pipes work) with
// "-c <conf>" put right after the tool. stdout lands in *out when not null; stderr goes
// to the test's output. True when the command exits 0. `conf` names another sandbox's.
bool run_ceph_cli(const std::string& args, std::string* out, const std::string& conf = ceph_conf_path());

}  // namespace au_test

// Inside a TEST body or SetUp(): without a usable conf, FAIL() when ceph is required,
// GTEST_SKIP() otherwise; both return from the enclosing function.
#define AU_REQUIRE_CEPH_OR_SKIP()                                                       \
  do {                                                                                  \
    const std::string au_ceph_unavailable_ = ::au_test::ceph_unavailable_reason();      \
    if (!au_ceph_unavailable_.empty()) {                                                \
      if (::au_test::ceph_required())                                                   \
        FAIL() << au_ceph_unavailable_ << " (AGENTUTIL_REQUIRE_CEPH=1 forbids skipping)"; \
      GTEST_SKIP() << au_ceph_unavailable_;                                             \
    }                                                                                   \
  } while (0)
