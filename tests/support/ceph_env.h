// How the ceph-labelled tests reach the sandbox cluster of scripts/ceph-sandbox: its conf
// comes from the environment (scripts/run-tests exports it), a test without one skips, or
// fails under CI, and the ceph/rbd/rados tools set up and check state beside the library.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace au_test {

// The pool that every sandbox cluster has, initialised for RBD.
constexpr const char* SANDBOX_RBD_POOL = "rbd";

// $AGENTUTIL_CEPH_CONF, "" when unset.
std::string ceph_conf_path();

// $AGENTUTIL_REQUIRE_CEPH == "1": a test that cannot reach the cluster fails, not skips.
bool ceph_required();

// "" when a conf is set and readable, else the reason why ceph tests cannot run.
std::string ceph_unavailable_reason();

// The text of the conf file ("" when unavailable), for clients that take conf text.
std::string ceph_conf_text();

// "<prefix>-<pid>-<n>": unique within this process and among test processes running
// side by side on one cluster, so tests never share images or pools.
std::string unique_ceph_name(const std::string& prefix);

// Runs a ceph, rbd or rados command line against the sandbox; `args` starts with the
// tool ("rbd diff --from-snap s1 rbd/img@s2") and "-c <conf>" is put right after it.
// The rest goes through /bin/sh, so pipes work. stdout lands in *out (when not null);
// stderr passes through to the test's output. True when the command exits 0.
bool run_ceph_cli(const std::string& args, std::string* out);

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
