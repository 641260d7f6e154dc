// Where the fake librados/librbd libraries of this folder are built, and the guard for
// tests that bind them: binding happens once per process, so such a test must be the
// only one in its process (ctest runs each test case alone).
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

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

}  // namespace au_test

#define AU_BINDING_TEST_ALONE_OR_SKIP()                                                  \
  do {                                                                                    \
    if (!::au_test::first_binding_in_process())                                          \
      GTEST_SKIP() << "binds Ceph libraries, which happens once per process; run it "    \
                      "alone (ctest does)";                                              \
  } while (0)
