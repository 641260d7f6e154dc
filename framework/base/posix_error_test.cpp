#include "framework/base/posix_error.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

namespace {

TEST(POSIX_Error, gives_the_text_of_the_value_and_of_errno) {
  EXPECT_STREQ("No such file or directory", POSIX_Error(ENOENT, 0).c_str());
  EXPECT_EQ("Permission denied (errno 13)", POSIX_Error(EACCES, POSIX_Error::WITH_CODE).str());
  EXPECT_EQ("Unknown error 99999", POSIX_Error(99999).str());

  errno = EEXIST;
  const POSIX_Error current;
  EXPECT_EQ(EEXIST, current.value());
  EXPECT_STREQ("File exists", current.c_str());
}

TEST(POSIX_Error, threads_never_see_each_others_text) {
  const std::vector<int> codes = {ENOENT, EACCES, EEXIST, ENOTDIR, EINVAL, ENOSPC};
  std::vector<std::string> expected;
  for (int c : codes) expected.push_back(POSIX_Error(c).str());
  std::vector<int> mismatches(codes.size(), 0);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < codes.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i)
        if (POSIX_Error(codes[t]).str() != expected[t]) ++mismatches[t];
    });
  }
  for (auto& th : threads) th.join();
  for (size_t t = 0; t < codes.size(); ++t) EXPECT_EQ(0, mismatches[t]) << expected[t];
}

}  // namespace
