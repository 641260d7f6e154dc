#include "framework/log/check.h"

#include <gtest/gtest.h>

#include <string>

#include "framework/log/trace.h"
#include "tests/support/log_capture.h"

namespace {

TEST(Check_Frame, failing_checks_log_the_expression_and_passing_ones_nothing) {
  au_test::Log_Capture logs;
  const char* uri = "ceph://rbd/vm1";
  EXPECT_FALSE(AU_IS_NULL_OR_EMPTY(uri));
  EXPECT_FALSE(AU_FAILS_IF(*uri, !=, 'c'));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
  uri = nullptr;
  EXPECT_TRUE(AU_IS_NULL_OR_EMPTY(uri));
  uri = "";
  EXPECT_TRUE(AU_IS_NULL_OR_EMPTY(uri));
  EXPECT_EQ(2u, logs.records().size());
  EXPECT_TRUE(logs.has_check("uri is NULL or \"\"")) << logs.dump();

  std::string pool_name;
  void* img_ctx = nullptr;
  bool image_ = false;
  EXPECT_TRUE(AU_IS_EMPTY(pool_name));
  EXPECT_TRUE(AU_IS_NULL(img_ctx));
  EXPECT_TRUE(AU_IS_FALSE(image_));
  for (const char* what : {"pool_name is empty", "img_ctx is NULL", "image_ is false"})
    EXPECT_TRUE(logs.has_check(what)) << what << logs.dump();
  // The frame names this file and a line, then the stack dump follows.
  EXPECT_NE(std::string::npos, logs.records().back().text.find("check_test.cpp:")) << logs.dump();

  // Invariant checks carry both values.
  const unsigned MAX_CHANGED_BLOCK_POWER = 30;
  unsigned power_of_2 = 31;
  unsigned long long len = 4096;
  EXPECT_TRUE(AU_FAILS_IF(power_of_2, >, MAX_CHANGED_BLOCK_POWER));
  EXPECT_TRUE(AU_FAILS_IF(len, !=, 0));
  EXPECT_TRUE(logs.has_check("power_of_2(31) > MAX_CHANGED_BLOCK_POWER(30)")) << logs.dump();
  EXPECT_TRUE(logs.has_check("len(4096) != 0(0)")) << logs.dump();
}

TEST(Debug_Trace, written_only_when_ace_debugging_is_on) {
  au_test::Log_Capture logs;
  ACE::debug(false);
  AU_DEBUG_TRACE((LM_DEBUG, "Thread %t called Client::rados_shutdown(%@)\n", &logs));
  EXPECT_TRUE(logs.records().empty());
  ACE::debug(true);
  AU_DEBUG_TRACE((LM_DEBUG, "Thread %t called Client::rados_shutdown(%@)\n", &logs));
  ACE::debug(false);
  EXPECT_TRUE(logs.has_fragment(LM_DEBUG, " called Client::rados_shutdown(")) << logs.dump();
}

}  // namespace
