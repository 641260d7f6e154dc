#include "framework/base/mem_map_handle.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "tests/support/temp_dir.h"
#include "tests/support/log_capture.h"

namespace {

struct Counter_Record {
  uint32_t magic;
  uint32_t count;
  char note[56];
};

class Counter_Handle : public Mem_Map_Handle<Counter_Record, Counter_Handle, 1024> {
 public:
  bool cloexec() const { return (::fcntl(map_.handle(), F_GETFD) & FD_CLOEXEC) != 0; }
};

off_t file_size(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

}  // namespace

TEST(Mem_Map_Handle, o_creat_gives_n_bytes_0640_shared_with_other_mappings) {
  const mode_t saved = ::umask(022);
  au_test::Temp_Dir tmp;
  const std::string path = tmp / "counter";
  Counter_Handle writer, reader;
  ASSERT_EQ(0, writer.open(path, O_RDWR | O_CREAT));
  EXPECT_EQ(1024, file_size(path));
  EXPECT_EQ(0640u, au_test::mode_of(path));
  EXPECT_FALSE(writer.cloexec());
  writer->count = 7;
  ASSERT_EQ(0, reader.open(path.c_str()));  // read-only, whole file
  EXPECT_EQ(7u, reader->count);
  writer->count = 8;  // shared, not a private copy
  EXPECT_EQ(8u, reader.get()->count);

  // A short file is extended, a long one keeps its length; O_CLOEXEC is applied after.
  const std::string short_file = tmp.write_file("short", "abc");
  const std::string long_file = tmp.write_file("long", std::string(5000, 'z'));
  ASSERT_EQ(0, writer.open(short_file, O_RDWR | O_CREAT | O_CLOEXEC));
  EXPECT_EQ(1024, file_size(short_file));
  EXPECT_TRUE(writer.cloexec());
  ASSERT_EQ(0, writer.open(long_file, O_RDWR | O_CREAT));
  EXPECT_EQ(5000, file_size(long_file));
  EXPECT_EQ(0, writer.remove());
  EXPECT_FALSE(au_test::exists(long_file));
  ::umask(saved);
}

TEST(Mem_Map_Handle, missing_short_and_empty_files_fail_cleanly_with_one_line_each) {
  au_test::Temp_Dir tmp;
  au_test::Log_Capture logs;
  Counter_Handle h;
  EXPECT_EQ(-1, h.open(tmp / "missing", O_RDWR));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to memory map " + (tmp / "missing") +
                                     ", errno=2, No such file or directory\n"))
      << logs.dump();
  EXPECT_EQ(-1, h.open(tmp.write_file("tiny", "0123456789"), O_RDWR));
  EXPECT_TRUE(logs.has(LM_ERROR, "Memory mapped file " + (tmp / "tiny") +
                                     " holds 10 bytes, fewer than its 64-byte record\n"))
      << logs.dump();
  EXPECT_EQ(-1, h.open(tmp.write_file("empty", ""), O_RDONLY));
  EXPECT_EQ(-1, h.open(tmp / "ro", O_RDONLY | O_CREAT));  // cannot extend read-only
  EXPECT_EQ(4u, logs.records().size()) << logs.dump();
  EXPECT_FALSE(static_cast<bool>(h));
  EXPECT_EQ(nullptr, h.get());
  EXPECT_EQ(-1, h.sync());

  logs.clear();
  EXPECT_FALSE(enable_fd_cloexec(-1));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to set close-on-exec on fd -1, errno=9, Bad file descriptor\n"));
}
