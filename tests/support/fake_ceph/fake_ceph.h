// Where the fake librados/librbd libraries of this folder are built, the guard for tests
// that bind them (binding happens once per process, so such a test must be the only one
// in its process; ctest runs each test case alone) and which pointers are bound.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace au_test {

inline std::string fake_ceph_dir() {
  const char* build = std::getenv("AGENTUTIL_BUILD_DIR");
#ifdef AU_FAKE_CEPH_DIR
  if (build == nullptr || *build == '\0') return AU_FAKE_CEPH_DIR;
#endif
  return std::string(build ? build : ".") + "/tests/support/fake_ceph";
}

// Counts binding tests across the whole test program.
inline bool first_binding_in_process() {
  static int bindings = 0;
  return bindings++ == 0;
}

// The pointers that are null right now, in binding order.
#define AU_TEST_COLLECT_UNBOUND(sym, kind) \
  if (::ceph::sym == nullptr) names.push_back(#sym);
inline std::vector<std::string> unbound_rados_pointers() {
  std::vector<std::string> names;
  AU_LIBRADOS_SYMBOLS(AU_TEST_COLLECT_UNBOUND)
  return names;
}
inline std::vector<std::string> unbound_rbd_pointers() {
  std::vector<std::string> names;
  AU_LIBRBD_SYMBOLS(AU_TEST_COLLECT_UNBOUND)
  return names;
}
#undef AU_TEST_COLLECT_UNBOUND

}  // namespace au_test

#define AU_BINDING_TEST_ALONE_OR_SKIP()                                                  \
  do {                                                                                    \
    if (!::au_test::first_binding_in_process())                                          \
      GTEST_SKIP() << "binds Ceph libraries, which happens once per process; run it "    \
                      "alone (ctest does)";                                              \
  } while (0)
