#include "utils/agent/agent_job_activity_handle.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "framework/base/scoped_deleter.h"
#include "framework/base/temp_dir_test.h"
#include "tests/support/log_capture.h"

namespace {

const std::string ACT_DIR = "/var/opt/norvane/stavora3/agent/act";

std::string unique_name(const char* what) {
  return "au_test_" + std::to_string(::getpid()) + "_" + what;
}

template <class V>
V read_at(const void* base, size_t offset) {
  V v;
  std::memcpy(&v, static_cast<const char*>(base) + offset, sizeof v);
  return v;
}

}  // namespace

TEST(Agent_Job_Activity_Handle, creates_4096_bytes_0640_in_the_agent_directory_readable_elsewhere) {
  const mode_t saved = ::umask(022);
  const bool dir_existed = au_test::exists(ACT_DIR);
  const std::string name = unique_name("layout"), path = ACT_DIR + "/" + name;
  auto cleanup = make_deleter([&] { ::unlink(path.c_str()); });
  Agent_Job_Activity_Handle writer;
  ASSERT_EQ(0, writer.open(name.c_str(), O_RDWR | O_CREAT));
  ::umask(saved);
  EXPECT_STREQ(path.c_str(), writer.filename());
  struct stat st;
  ASSERT_EQ(0, ::stat(path.c_str(), &st));
  EXPECT_EQ(4096, st.st_size);
  EXPECT_EQ(0640u, st.st_mode & 07777);
  if (!dir_existed) {
    EXPECT_EQ(S_IFDIR | 0750u, au_test::mode_of(ACT_DIR));
  }

  // Every offset is pinned at compile time; this checks the bytes reach the file.
  Job_Activity* a = writer.get();
  a->version = 3;
  a->def_id[15] = 0x22;
  a->enabled = true;
  a->state = JOB_STATE_OPENING;
  a->next_run_time = -5;
  a->progress = -1;
  a->speed = 0x1122334455667788ull;
  a->message = {15, 200};
  ASSERT_EQ(0, writer.sync());

  // An independent mapping that knows nothing of the struct: raw bytes at fixed offsets.
  const int fd = ::open(path.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  void* raw = ::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0);
  ::close(fd);
  ASSERT_NE(MAP_FAILED, raw);
  auto unmap = make_deleter([raw] { ::munmap(raw, 4096); });
  const auto* b = static_cast<const unsigned char*>(raw);
  EXPECT_EQ(3u, read_at<uint32_t>(b, 4));
  EXPECT_EQ(0x22, b[39]);
  EXPECT_EQ(1, b[60]);
  EXPECT_EQ(25, read_at<int32_t>(b, 64));
  EXPECT_EQ(-5, read_at<int64_t>(b, 80));
  EXPECT_EQ(-1, read_at<int32_t>(b, 120));
  EXPECT_EQ(0x1122334455667788ull, read_at<uint64_t>(b, 136));
  EXPECT_EQ(15u, read_at<uint16_t>(b, 148));
  EXPECT_EQ(200u, read_at<uint16_t>(b, 150));
}

TEST(Agent_Job_Activity_Handle, fails_on_missing_files_without_o_creat_and_on_names_that_leave_the_directory) {
  au_test::Log_Capture logs;
  Agent_Job_Activity_Handle h;
  const std::string name = unique_name("missing");
  EXPECT_EQ(-1, h.open(name.c_str(), O_RDWR));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to memory map " + ACT_DIR + "/" + name +
                                     ", errno=2, No such file or directory\n"))
      << logs.dump();
  EXPECT_EQ(1u, logs.records().size()) << logs.dump();

  for (const char* bad : {"../escape", "sub/job", ".."}) {
    EXPECT_EQ(-1, h.open(bad, O_RDWR | O_CREAT)) << bad;
    EXPECT_TRUE(logs.has(LM_ERROR, std::string("Invalid job activity name '") + bad +
                                       "': not a plain file name.\n"))
        << logs.dump();
  }
  EXPECT_FALSE(au_test::exists("/var/opt/norvane/stavora3/agent/escape"));
  EXPECT_EQ(-1, h.open("", O_RDWR));
  EXPECT_TRUE(logs.has_check("name is NULL or \"\"")) << logs.dump();
}
