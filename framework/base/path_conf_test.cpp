#include "framework/base/path_conf.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "framework/base/temp_dir_test.h"
#include "tests/support/log_capture.h"

namespace {

class Path_Conf_Test : public ::testing::Test {
 protected:
  void SetUp() override { saved_umask_ = ::umask(022); }
  void TearDown() override { ::umask(saved_umask_); }

  au_test::Temp_Dir tmp_;
  mode_t saved_umask_ = 0;
};

TEST_F(Path_Conf_Test, file_form_makes_every_missing_level_of_the_directory_only) {
  const std::string dir = tmp_ / "a/b/c";
  au_test::Log_Capture logs;
  const Path_Conf conf(dir.c_str(), false, "job.act", 0750);

  EXPECT_EQ(dir + "/job.act", conf.str());
  EXPECT_STREQ(conf.str().c_str(), conf.c_str());
  EXPECT_TRUE(conf.ready());
  for (const char* level : {"a", "a/b", "a/b/c"}) {
    EXPECT_TRUE(au_test::is_directory(tmp_ / level)) << level;
    EXPECT_EQ(0750u, au_test::mode_of(tmp_ / level)) << level;
  }
  EXPECT_FALSE(au_test::exists(conf.str()));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

TEST_F(Path_Conf_Test, directory_form_makes_the_leaf_and_joins_without_double_separators) {
  const std::string base = tmp_.path() + "/sdk/";
  const Path_Conf conf(base.c_str(), true, "/vendor", 0700);
  EXPECT_EQ(tmp_ / "sdk/vendor", conf.str());
  EXPECT_TRUE(conf.ready());
  EXPECT_TRUE(au_test::is_directory(conf.str()));
  EXPECT_EQ(0700u, au_test::mode_of(conf.str()));
}

TEST_F(Path_Conf_Test, existing_directories_are_left_as_they_are) {
  ASSERT_EQ(0, ::mkdir((tmp_ / "open").c_str(), 0777));
  ASSERT_EQ(0, ::chmod((tmp_ / "open").c_str(), 0777));
  au_test::Log_Capture logs;
  const Path_Conf conf((tmp_ / "open").c_str(), false, "f", 0750);
  EXPECT_TRUE(conf.ready());
  EXPECT_EQ(0777u, au_test::mode_of(tmp_ / "open"));
  EXPECT_TRUE(logs.records().empty()) << logs.dump();
}

TEST_F(Path_Conf_Test, a_file_in_the_way_is_logged_once_and_not_thrown) {
  tmp_.write_file("plain", "x");
  const std::string dir = tmp_ / "plain/sub/deeper";
  au_test::Log_Capture logs;
  const Path_Conf conf(dir.c_str(), false, "job.act", 0750);

  EXPECT_FALSE(conf.ready());
  EXPECT_EQ(dir + "/job.act", conf.str());
  EXPECT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to create directory " + dir +
                                      ", errno=20, Not a directory\n"))
      << logs.dump();

  // The leaf itself being a file is refused the same way.
  logs.clear();
  const Path_Conf leaf(tmp_.path().c_str(), true, "plain", 0750);
  EXPECT_FALSE(leaf.ready());
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to create directory " + (tmp_ / "plain") +
                                      ", errno=20, Not a directory\n"))
      << logs.dump();
}

TEST_F(Path_Conf_Test, make_directories_reports_the_errno_of_the_failing_step) {
  EXPECT_EQ(0, make_directories(tmp_ / "x//y", 0755));
  EXPECT_TRUE(au_test::is_directory(tmp_ / "x/y"));
  EXPECT_EQ(0, make_directories(tmp_ / "x/y", 0755));  // already there
  EXPECT_EQ(ENOENT, make_directories("", 0755));
  tmp_.write_file("f", "");
  EXPECT_EQ(ENOTDIR, make_directories(tmp_ / "f/g", 0755));
}

}  // namespace
