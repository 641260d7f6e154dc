#include "framework/base/directory_iterator.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/range/adaptor/filtered.hpp>
#include <map>
#include <set>

#include "tests/support/temp_dir.h"

TEST(Directory_Iterator, lists_every_entry_but_dot_and_dot_dot_with_its_kind) {
  au_test::Temp_Dir tmp;
  ASSERT_EQ(0, ::mkdir((tmp / "sub").c_str(), 0755));
  tmp.write_file("file.txt", "x");
  tmp.write_file(".hidden", "");
  ASSERT_EQ(0, ::symlink("sub", (tmp / "link_to_dir").c_str()));
  ASSERT_EQ(0, ::symlink("nowhere", (tmp / "dangling").c_str()));

  Directory_Reader reader(tmp.path().c_str());
  std::map<std::string, bool> seen;
  for (const Directory_Entry& e : iterate_directory(reader))
    EXPECT_TRUE(seen.emplace(e.name(), e.is_dir()).second) << "twice: " << e.name();
  EXPECT_EQ((std::map<std::string, bool>{{"sub", true}, {"file.txt", false}, {".hidden", false},
                                         {"link_to_dir", true}, {"dangling", false}}),
            seen);
  EXPECT_EQ(0, reader.last_error());

  // An iterator opened by path keeps its reader; the range composes with adaptors.
  Directory_Iterator begin(tmp.path().c_str());
  std::set<std::string> dirs;
  for (const Directory_Entry& e :
       iterate_directory(begin) | boost::adaptors::filtered([](const Directory_Entry& e) { return e.is_dir(); }))
    dirs.insert(e.name());
  EXPECT_EQ((std::set<std::string>{"sub", "link_to_dir"}), dirs);
  EXPECT_EQ(0, begin.reader()->last_error());
}

TEST(Directory_Iterator, unreadable_paths_give_an_empty_range_and_their_errno) {
  au_test::Temp_Dir tmp;
  tmp.write_file("file", "");
  const std::pair<std::string, int> cases[] = {{tmp / "absent", ENOENT}, {tmp / "file", ENOTDIR}};
  for (const auto& c : cases) {
    Directory_Reader reader(c.first.c_str());
    EXPECT_TRUE(iterate_directory(reader).empty()) << c.first;
    EXPECT_EQ(c.second, reader.last_error()) << c.first;
  }
  Directory_Reader null_path(nullptr);
  EXPECT_TRUE(iterate_directory(null_path).empty());
  EXPECT_NE(0, null_path.last_error());
}
