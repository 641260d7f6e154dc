#include "framework/base/posix_error.h"

#include <gtest/gtest.h>

#include <cerrno>

TEST(POSIX_Error, gives_the_text_of_the_value_or_of_errno) {
  EXPECT_STREQ("No such file or directory", POSIX_Error(ENOENT, 0).c_str());
  EXPECT_EQ("Permission denied (errno 13)", POSIX_Error(EACCES, POSIX_Error::WITH_CODE).str());
  EXPECT_EQ("Unknown error 99999", POSIX_Error(99999).str());
  errno = EEXIST;
  const POSIX_Error current;
  EXPECT_EQ(EEXIST, current.value());
  EXPECT_STREQ("File exists", current.c_str());
}
