#include "utils/agent/ceph/ceph_client.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/fake_ceph/fake_ceph.h"
#include "tests/support/log_capture.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace {

size_t unbound_pointers() {
  size_t n = 0;
#define AU_COUNT_UNBOUND(sym, kind) n += ceph::sym == nullptr;
  AU_LIBRADOS_SYMBOLS(AU_COUNT_UNBOUND)
  AU_LIBRBD_SYMBOLS(AU_COUNT_UNBOUND)
#undef AU_COUNT_UNBOUND
  return n;
}

// The Ceph packages of this machine provide every function, optional ones included.
TEST(Ceph_Client_Libraries, binds_the_installed_librados_and_librbd) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  ACE::debug(true);
  const bool bound = ceph::Ceph_Client::open_ceph_libraries();
  ACE::debug(false);
  ASSERT_TRUE(bound) << logs.dump();
  EXPECT_TRUE(static_cast<bool>(*ceph::Librados_Wrapper::instance()));
  EXPECT_TRUE(static_cast<bool>(*ceph::Librbd_Wrapper::instance()));
  EXPECT_EQ(0u, unbound_pointers());
  EXPECT_TRUE(logs.has_fragment(LM_DEBUG, " called Ceph_Client::open_ceph_libraries()\n"))
      << logs.dump();
  EXPECT_FALSE(logs.has_fragment(LM_TRACE, "Current version of")) << logs.dump();

  // The real library answers through the bound pointer.
  int major = 0, minor = 0, extra = 0;
  ceph::rbd_version(&major, &minor, &extra);
  EXPECT_GE(major, 1);
  EXPECT_TRUE(ceph::Ceph_Client::open_ceph_libraries());
}

TEST(Ceph_Client_Libraries, librbd_is_left_alone_when_librados_is_unusable) {
  AU_BINDING_TEST_ALONE_OR_SKIP();
  au_test::Log_Capture logs;
  const std::string dir = au_test::fake_ceph_dir();
  ASSERT_FALSE(ceph::Librados_Wrapper::instance()->open("libfake_rados_noconnect", dir.c_str()));
  logs.clear();
  EXPECT_FALSE(ceph::Ceph_Client::open_ceph_libraries());
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
  EXPECT_FALSE(static_cast<bool>(*ceph::Librbd_Wrapper::instance()));
  // librbd's one chance to load is still there.
  EXPECT_TRUE(ceph::Librbd_Wrapper::instance()->open("libfake_rbd_full", dir.c_str()))
      << logs.dump();
}

}  // namespace
