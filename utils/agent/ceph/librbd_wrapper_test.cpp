// Binding librbd from fake libraries that lack chosen functions. Binding is once per
// process, so every test here runs alone (ctest gives each its own process).
#include "utils/agent/ceph/librbd_wrapper.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"

namespace {

using ceph::Librbd_Wrapper;

size_t count_priority(const au_test::Log_Capture& logs, ACE_Log_Priority p) {
  size_t n = 0;
  for (const auto& r : logs.records()) n += r.priority == p;
  return n;
}

// The pointers that are null right now, in binding order.
std::vector<std::string> unbound_rbd_pointers() {
  std::vector<std::string> names;
#define AU_COLLECT_UNBOUND(sym, kind) \
  if (ceph::sym == nullptr) names.push_back(#sym);
  AU_LIBRBD_SYMBOLS(AU_COLLECT_UNBOUND)
#undef AU_COLLECT_UNBOUND
  return names;
}

std::string undefined_symbol(const std::string& lib, const std::string& sym) {
  return au_test::fake_ceph_dir() + "/" + lib + ".so: undefined symbol: " + sym;
}

TEST(Librbd_Binding, old_release_without_optional_functions_still_binds) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  Librbd_Wrapper* rbd = Librbd_Wrapper::instance();
  ASSERT_TRUE(rbd->open("libfake_rbd_old", au_test::fake_ceph_dir().c_str())) << logs.dump();
  EXPECT_TRUE(static_cast<bool>(*rbd));
  EXPECT_NE(nullptr, ceph::rbd_open);
  EXPECT_NE(nullptr, ceph::rbd_snap_remove);

  // Exactly the 50 optional functions stay null, each noted once at trace level.
  const std::vector<std::string> unbound = unbound_rbd_pointers();
  EXPECT_EQ(50u, unbound.size());
  EXPECT_EQ(50u, count_priority(logs, LM_TRACE)) << logs.dump();
  EXPECT_EQ(0u, count_priority(logs, LM_ERROR)) << logs.dump();
  for (const std::string sym : {"rbd_version", "rbd_list2", "rbd_group_image_list_cleanup"}) {
    EXPECT_TRUE(logs.has(LM_TRACE, "Current version of librbd doesn't support " + sym + ": " +
                                       undefined_symbol("libfake_rbd_old", sym) + "\n"))
        << logs.dump();
  }

  // Users of an optional function check it first and name it in their error.
  logs.clear();
  EXPECT_TRUE(AU_CEPH_LACKS_SYMBOL(rbd_group_snap_create));
  EXPECT_FALSE(AU_CEPH_LACKS_SYMBOL(rbd_diff_iterate));
  EXPECT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR,
                       "Failed to get symbol rbd_group_snap_createThis version of Ceph doesn't "
                       "support it.\n"))
      << logs.dump();
}

TEST(Librbd_Binding, missing_required_function_leaves_the_process_half_bound) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  Librbd_Wrapper* rbd = Librbd_Wrapper::instance();
  const std::string dir = au_test::fake_ceph_dir();
  EXPECT_FALSE(rbd->open("libfake_rbd_noclose", dir.c_str()));
  EXPECT_FALSE(static_cast<bool>(*rbd));

  // What came before rbd_close is bound and stays so; nothing after it was tried.
  EXPECT_NE(nullptr, ceph::rbd_version);
  EXPECT_NE(nullptr, ceph::rbd_open);
  EXPECT_NE(nullptr, ceph::rbd_open_by_id_read_only);
  const std::vector<std::string> unbound = unbound_rbd_pointers();
  ASSERT_EQ(67u, unbound.size());
  EXPECT_EQ("rbd_close", unbound.front());
  EXPECT_EQ("rbd_resize", unbound[1]);
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to load librbd symbol rbd_close : " +
                                     undefined_symbol("libfake_rbd_noclose", "rbd_close") +
                                     "\n"))
      << logs.dump();

  // A second open, even of a complete library, does not try again.
  logs.clear();
  EXPECT_FALSE(rbd->open("libfake_rbd_full", dir.c_str()));
  EXPECT_EQ(nullptr, ceph::rbd_resize);
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

TEST(Librbd_Binding, named_directory_is_never_replaced_by_the_search_path) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  Librbd_Wrapper* rbd = Librbd_Wrapper::instance();
  // The installed librbd would be found by its bare name; the named directory has none.
  EXPECT_FALSE(rbd->open("librbd", "/nonexistent-agentutil-dir"));
  EXPECT_EQ(nullptr, dlopen("librbd.so.1", RTLD_LAZY | RTLD_NOLOAD));
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  const auto rec = logs.records().front();
  EXPECT_EQ(LM_ERROR, rec.priority);
  const std::string head =
      "Failed to open dll 'librbd' form path /nonexistent-agentutil-dir/librbd: ";
  EXPECT_EQ(head, rec.text.substr(0, head.size())) << rec.text;
  EXPECT_NE(std::string::npos, rec.text.find("No such file or directory")) << rec.text;
  EXPECT_EQ(".\n", rec.text.substr(rec.text.size() - 2)) << rec.text;
  EXPECT_EQ(72u, unbound_rbd_pointers().size());
}

TEST(Librbd_Binding, close_clears_every_pointer_and_open_does_not_bind_again) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  Librbd_Wrapper* rbd = Librbd_Wrapper::instance();
  const std::string dir = au_test::fake_ceph_dir();
  ASSERT_TRUE(rbd->open("libfake_rbd_full", dir.c_str())) << logs.dump();
  EXPECT_TRUE(unbound_rbd_pointers().empty());
  EXPECT_TRUE(logs.records().empty()) << logs.dump();

  rbd->close();
  EXPECT_FALSE(static_cast<bool>(*rbd));
  EXPECT_EQ(72u, unbound_rbd_pointers().size());
  EXPECT_FALSE(rbd->open("libfake_rbd_full", dir.c_str()));
  EXPECT_EQ(72u, unbound_rbd_pointers().size());
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

}  // namespace
