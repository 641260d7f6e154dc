// Binding librados from fake libraries that lack chosen functions. Binding is once per
// process, so every test here runs alone (ctest gives each its own process).
#include "utils/agent/ceph/librados_wrapper.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"

namespace {

using ceph::Librados_Wrapper;

std::vector<std::string> unbound_rados_pointers() {
  std::vector<std::string> names;
#define AU_COLLECT_UNBOUND(sym, kind) \
  if (ceph::sym == nullptr) names.push_back(#sym);
  AU_LIBRADOS_SYMBOLS(AU_COLLECT_UNBOUND)
#undef AU_COLLECT_UNBOUND
  return names;
}

std::string undefined_symbol(const std::string& lib, const std::string& sym) {
  return au_test::fake_ceph_dir() + "/" + lib + ".so: undefined symbol: " + sym;
}

TEST(Librados_Binding, old_release_without_the_four_optional_functions_binds) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  Librados_Wrapper* rados = Librados_Wrapper::instance();
  // A trailing separator on the directory is folded into the one joint.
  const std::string dir = au_test::fake_ceph_dir() + "/";
  ASSERT_TRUE(rados->open("libfake_rados_old", dir.c_str())) << logs.dump();
  EXPECT_TRUE(static_cast<bool>(*rados));

  const std::vector<std::string> optional = {"rados_create2", "rados_ioctx_create2",
                                             "rados_get_min_compatible_client",
                                             "rados_version"};
  EXPECT_EQ(optional, unbound_rados_pointers());
  ASSERT_EQ(4u, logs.records().size()) << logs.dump();
  for (const std::string& sym : optional) {
    EXPECT_TRUE(logs.has(LM_TRACE, "Current version of librados doesn't support " + sym + ": " +
                                       undefined_symbol("libfake_rados_old", sym) + "\n"))
        << logs.dump();
  }
}

TEST(Librados_Binding, missing_required_function_stops_the_binding_there) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  Librados_Wrapper* rados = Librados_Wrapper::instance();
  const std::string dir = au_test::fake_ceph_dir();
  EXPECT_FALSE(rados->open("libfake_rados_noconnect", dir.c_str()));
  EXPECT_FALSE(static_cast<bool>(*rados));
  EXPECT_NE(nullptr, ceph::rados_conf_get);  // bound before the gap, and kept
  const std::vector<std::string> unbound = unbound_rados_pointers();
  ASSERT_EQ(10u, unbound.size());
  EXPECT_EQ("rados_connect", unbound.front());
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to load librados symbol rados_connect : " +
                                     undefined_symbol("libfake_rados_noconnect",
                                                      "rados_connect") +
                                     "\n"))
      << logs.dump();
}

TEST(Librados_Binding, missing_library_fails_with_the_loader_error) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  Librados_Wrapper* rados = Librados_Wrapper::instance();
  EXPECT_FALSE(rados->open("libagentutil_no_such_rados", nullptr));
  EXPECT_FALSE(rados->open(nullptr, nullptr));  // once per process: the default is not tried
  EXPECT_EQ(18u, unbound_rados_pointers().size());
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  const auto rec = logs.records().front();
  EXPECT_EQ(LM_ERROR, rec.priority);
  const std::string head = "Failed to open dll 'librados': libagentutil_no_such_rados";
  EXPECT_EQ(head, rec.text.substr(0, head.size())) << rec.text;
}

}  // namespace
