#include "framework/log/check.h"

#include <gtest/gtest.h>

#include <string>

#include "framework/log/trace.h"
#include "tests/support/log_capture.h"

namespace {

int refuse_null_or_empty(const char* uri) {
  if (AU_IS_NULL_OR_EMPTY(uri)) return -1;
  return 0;
}

TEST(Check_Frame, argument_checks_log_the_expression_and_report_failure) {
  au_test::Log_Capture logs;
  EXPECT_EQ(-1, refuse_null_or_empty(nullptr));
  EXPECT_EQ(-1, refuse_null_or_empty(""));
  EXPECT_EQ(0, refuse_null_or_empty("ceph://rbd/vm1"));
  EXPECT_EQ(2u, logs.records().size());
  EXPECT_TRUE(logs.has_check("uri is NULL or \"\"")) << logs.dump();

  std::string pool_name;
  void* img_ctx = nullptr;
  bool image_ = false;
  EXPECT_TRUE(AU_IS_EMPTY(pool_name));
  EXPECT_TRUE(AU_IS_NULL(img_ctx));
  EXPECT_TRUE(AU_IS_FALSE(image_));
  EXPECT_TRUE(logs.has_check("pool_name is empty"));
  EXPECT_TRUE(logs.has_check("img_ctx is NULL"));
  EXPECT_TRUE(logs.has_check("image_ is false"));

  // The frame names this file and a line, then the stack dump follows.
  const auto rec = logs.records().back();
  EXPECT_EQ(LM_EMERGENCY, rec.priority);
  EXPECT_NE(std::string::npos, rec.text.find("check_test.cpp:")) << rec.text;
}

TEST(Check_Frame, passing_checks_log_nothing) {
  au_test::Log_Capture logs;
  std::string name = "rbd";
  int x = 1;
  EXPECT_FALSE(AU_IS_EMPTY(name));
  EXPECT_FALSE(AU_IS_NULL(&x));
  EXPECT_FALSE(AU_IS_FALSE(x));
  EXPECT_FALSE(AU_FAILS_IF(x, !=, 1));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

TEST(Check_Frame, invariant_checks_carry_both_values) {
  au_test::Log_Capture logs;
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
