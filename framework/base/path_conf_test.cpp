#include "framework/base/path_conf.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/temp_dir.h"
#include "tests/support/log_capture.h"

TEST(Path_Conf, makes_each_missing_level_of_the_holding_directory_with_the_mode) {
  const mode_t saved = ::umask(022);
  au_test::Temp_Dir tmp;
  au_test::Log_Capture logs;
  const Path_Conf file((tmp / "a/b").c_str(), false, "job.act", 0750);
  EXPECT_EQ(tmp / "a/b/job.act", file.str());
  EXPECT_TRUE(file.ready());
  EXPECT_EQ(S_IFDIR | 0750u, au_test::mode_of(tmp / "a"));
  EXPECT_EQ(S_IFDIR | 0750u, au_test::mode_of(tmp / "a/b"));
  EXPECT_FALSE(au_test::exists(file.str()));

  // Directory form: the leaf is made; separators at the joint fold into one.
  const Path_Conf dir((tmp.path() + "/sdk/").c_str(), true, "/vendor", 0700);
  EXPECT_STREQ((tmp / "sdk/vendor").c_str(), dir.c_str());
  EXPECT_EQ(S_IFDIR | 0700u, au_test::mode_of(dir.str()));

  // What exists is left alone.
  ASSERT_EQ(0, ::chmod((tmp / "a").c_str(), 0777));
  EXPECT_TRUE(Path_Conf((tmp / "a").c_str(), true, "b", 0700).ready());
  EXPECT_EQ(S_IFDIR | 0777u, au_test::mode_of(tmp / "a"));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
  ::umask(saved);
}

TEST(Path_Conf, a_file_in_the_way_is_logged_once_and_not_thrown) {
  au_test::Temp_Dir tmp;
  tmp.write_file("plain", "x");
  au_test::Log_Capture logs;
  const Path_Conf below((tmp / "plain/sub").c_str(), false, "job.act", 0750);
  EXPECT_FALSE(below.ready());
  EXPECT_EQ(tmp / "plain/sub/job.act", below.str());
  const Path_Conf leaf(tmp.path().c_str(), true, "plain", 0750);
  EXPECT_FALSE(leaf.ready());
  ASSERT_EQ(2u, logs.records().size()) << logs.dump();
  for (const char* dir : {"plain/sub", "plain"}) {
    EXPECT_TRUE(logs.has(LM_ERROR, "Failed to create directory " + (tmp / dir) +
                                       ", errno=20, Not a directory\n"))
        << logs.dump();
  }
}
