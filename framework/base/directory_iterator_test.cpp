#include "framework/base/directory_iterator.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/range/adaptor/filtered.hpp>
#include <boost/range/adaptor/transformed.hpp>
#include <map>
#include <set>
#include <string>

#include "framework/base/temp_dir_test.h"

namespace {

class Directory_Iterator_Test : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(tmp_.path().empty());
    ASSERT_EQ(0, ::mkdir((tmp_ / "sub").c_str(), 0755));
    tmp_.write_file("file.txt", "x");
    tmp_.write_file(".hidden", "");
    ASSERT_EQ(0, ::symlink("sub", (tmp_ / "link_to_dir").c_str()));
    ASSERT_EQ(0, ::symlink("file.txt", (tmp_ / "link_to_file").c_str()));
    ASSERT_EQ(0, ::symlink("nowhere", (tmp_ / "dangling").c_str()));
  }

  au_test::Temp_Dir tmp_;
};

TEST_F(Directory_Iterator_Test, lists_every_entry_but_dot_and_dot_dot_with_its_kind) {
  Directory_Reader reader(tmp_.path().c_str());
  std::map<std::string, bool> seen;  // name -> is_dir
  for (const Directory_Entry& e : iterate_directory(reader)) {
    EXPECT_TRUE(seen.emplace(e.name(), e.is_dir()).second) << "twice: " << e.name();
  }
  const std::map<std::string, bool> expected = {
      {"sub", true},           {"file.txt", false},     {".hidden", false},
      {"link_to_dir", true},   {"link_to_file", false}, {"dangling", false}};
  EXPECT_EQ(expected, seen);
  EXPECT_EQ(0, reader.last_error());
}

TEST_F(Directory_Iterator_Test, missing_or_non_directory_paths_give_an_empty_range_and_an_error) {
  Directory_Reader missing((tmp_ / "absent").c_str());
  EXPECT_TRUE(iterate_directory(missing).empty());
  EXPECT_EQ(ENOENT, missing.last_error());
  EXPECT_FALSE(missing.is_open());

  Directory_Reader file((tmp_ / "file.txt").c_str());
  EXPECT_TRUE(iterate_directory(file).empty());
  EXPECT_EQ(ENOTDIR, file.last_error());

  Directory_Reader null_path(nullptr);
  EXPECT_TRUE(iterate_directory(null_path).empty());
  EXPECT_NE(0, null_path.last_error());
}

TEST_F(Directory_Iterator_Test, composes_with_boost_adaptors_and_owns_its_reader_when_opened_by_path) {
  using boost::adaptors::filtered;
  using boost::adaptors::transformed;
  std::set<std::string> dirs;
  Directory_Iterator begin(tmp_.path().c_str());
  const auto range = iterate_directory(begin) |
                     filtered([](const Directory_Entry& e) { return e.is_dir(); }) |
                     transformed([](const Directory_Entry& e) { return e.name() + "/"; });
  for (const std::string& name : range) dirs.insert(name);
  EXPECT_EQ((std::set<std::string>{"sub/", "link_to_dir/"}), dirs);
  ASSERT_NE(nullptr, begin.reader());
  EXPECT_EQ(0, begin.reader()->last_error());

  EXPECT_TRUE(iterate_directory(Directory_Iterator((tmp_ / "absent").c_str())).empty());
}

TEST_F(Directory_Iterator_Test, an_empty_directory_is_an_empty_range_without_error) {
  Directory_Reader reader((tmp_ / "sub").c_str());
  EXPECT_TRUE(iterate_directory(reader).empty());
  EXPECT_EQ(0, reader.last_error());
  EXPECT_TRUE(reader.is_open());
}

}  // namespace
