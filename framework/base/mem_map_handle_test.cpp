#include "framework/base/mem_map_handle.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "framework/base/fd_cloexec.h"
#include "framework/base/temp_dir_test.h"
#include "tests/support/log_capture.h"

namespace {

struct Counter_Record {
  uint32_t magic;
  uint32_t count;
  char note[56];
};

class Counter_Handle : public Mem_Map_Handle<Counter_Record, Counter_Handle, 1024> {
 public:
  using Mem_Map_Handle::open;
  ACE_HANDLE handle() const { return map_.handle(); }
};

off_t file_size(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

bool has_cloexec(int fd) { return (::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

class Mem_Map_Handle_Test : public ::testing::Test {
 protected:
  void SetUp() override { saved_umask_ = ::umask(022); }
  void TearDown() override { ::umask(saved_umask_); }

  au_test::Temp_Dir tmp_;
  mode_t saved_umask_ = 0;
};

TEST_F(Mem_Map_Handle_Test, creating_gives_a_full_size_file_shared_with_other_mappings) {
  const std::string path = tmp_ / "counter";
  Counter_Handle writer;
  ASSERT_EQ(0, writer.open(path, O_RDWR | O_CREAT));
  EXPECT_TRUE(static_cast<bool>(writer));
  EXPECT_EQ(1024, file_size(path));
  EXPECT_EQ(0640u, au_test::mode_of(path));
  EXPECT_EQ(1024u, writer.size());
  EXPECT_STREQ(path.c_str(), writer.filename());

  writer->magic = 0xfeedf00d;
  writer->count = 7;
  std::strcpy(writer->note, "running");
  EXPECT_EQ(0, writer.sync());

  Counter_Handle reader;
  ASSERT_EQ(0, reader.open(path.c_str()));  // read-only, whole file
  EXPECT_EQ(1024u, reader.size());
  EXPECT_EQ(0xfeedf00du, reader->magic);
  EXPECT_STREQ("running", reader.get()->note);
  writer->count = 8;  // shared, not a private copy
  EXPECT_EQ(8u, reader->count);
}

TEST_F(Mem_Map_Handle_Test, o_creat_extends_a_short_file_and_keeps_a_long_one) {
  const std::string short_file = tmp_.write_file("short", "abc");
  Counter_Handle h;
  ASSERT_EQ(0, h.open(short_file, O_RDWR | O_CREAT));
  EXPECT_EQ(1024, file_size(short_file));
  EXPECT_EQ(0, std::memcmp(h.get(), "abc", 3));

  const std::string long_file = tmp_.write_file("long", std::string(5000, 'z'));
  ASSERT_EQ(0, h.open(long_file, O_RDWR | O_CREAT));
  EXPECT_EQ(5000, file_size(long_file));
  EXPECT_EQ(1024u, h.size());
}

TEST_F(Mem_Map_Handle_Test, missing_short_and_empty_files_fail_cleanly_with_one_line) {
  au_test::Log_Capture logs;
  Counter_Handle h;
  const std::string missing = tmp_ / "missing";
  EXPECT_EQ(-1, h.open(missing, O_RDWR));
  EXPECT_FALSE(static_cast<bool>(h));
  EXPECT_EQ(nullptr, h.get());
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to memory map " + missing +
                                     ", errno=2, No such file or directory\n"))
      << logs.dump();

  logs.clear();
  const std::string tiny = tmp_.write_file("tiny", "0123456789");
  EXPECT_EQ(-1, h.open(tiny, O_RDWR));
  EXPECT_EQ(nullptr, h.get());
  EXPECT_TRUE(logs.has(LM_ERROR, "Memory mapped file " + tiny +
                                     " holds 10 bytes, fewer than its 64-byte record\n"))
      << logs.dump();

  logs.clear();
  const std::string empty = tmp_.write_file("empty", "");
  EXPECT_EQ(-1, h.open(empty, O_RDONLY));
  EXPECT_FALSE(static_cast<bool>(h));
  EXPECT_EQ(1u, logs.records().size()) << logs.dump();

  logs.clear();
  EXPECT_EQ(-1, h.open(static_cast<const char*>(nullptr), O_RDONLY));
  EXPECT_TRUE(logs.has_check("path is NULL or \"\"")) << logs.dump();
  EXPECT_EQ(-1, h.sync());
}

TEST_F(Mem_Map_Handle_Test, read_only_opens_cannot_create_and_remove_unlinks) {
  au_test::Log_Capture logs;
  Counter_Handle h;
  const std::string path = tmp_ / "ro";
  // Extending a new file needs a writable descriptor.
  EXPECT_EQ(-1, h.open(path, O_RDONLY | O_CREAT));
  EXPECT_TRUE(logs.has_fragment(LM_ERROR, "Failed to memory map " + path + ", errno=")) << logs.dump();

  ASSERT_EQ(0, h.open(path, O_RDWR | O_CREAT));
  EXPECT_EQ(0, h.remove());
  EXPECT_FALSE(au_test::exists(path));
  EXPECT_FALSE(static_cast<bool>(h));
}

TEST_F(Mem_Map_Handle_Test, close_on_exec_is_set_only_when_asked) {
  const std::string path = tmp_ / "fd";
  Counter_Handle plain;
  ASSERT_EQ(0, plain.open(path, O_RDWR | O_CREAT));
  EXPECT_FALSE(has_cloexec(plain.handle()));

  Counter_Handle sealed;
  ASSERT_EQ(0, sealed.open(path, O_RDWR | O_CLOEXEC));
  EXPECT_TRUE(has_cloexec(sealed.handle()));

  au_test::Log_Capture logs;
  EXPECT_TRUE(enable_fd_cloexec(plain.handle()));
  EXPECT_TRUE(has_cloexec(plain.handle()));
  EXPECT_FALSE(enable_fd_cloexec(-1));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to set close-on-exec on fd -1, errno=9, Bad file descriptor\n"))
      << logs.dump();
}

}  // namespace
