#include "utils/agent/agent_job_activity_handle.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "framework/base/scoped_deleter.h"
#include "tests/support/temp_dir.h"
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
  EXPECT_EQ(0640u, au_test::mode_of(path));
  if (!dir_existed) {
    EXPECT_EQ(S_IFDIR | 0750u, au_test::mode_of(ACT_DIR));
  }

  // The offsets are pinned at compile time; this checks that the bytes reach the file.
  Job_Activity* a = writer.get();
  a->version = 3;
  a->speed = 0x1122334455667788ull;
  a->message = {15, 200};
  ASSERT_EQ(0, writer.sync());

  // Read back as plain bytes, by a reader that knows nothing of the struct.
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_EQ(4096u, bytes.size());
  const char* raw = bytes.data();
  EXPECT_EQ(3u, read_at<uint32_t>(raw, 4));
  EXPECT_EQ(0x1122334455667788ull, read_at<uint64_t>(raw, 136));
  EXPECT_EQ(15u, read_at<uint16_t>(raw, 148));
  EXPECT_EQ(200u, read_at<uint16_t>(raw, 150));
}

TEST(Agent_Job_Activity_Handle, fails_on_missing_files_without_o_creat_and_on_names_that_leave_the_directory) {
  au_test::Log_Capture logs;
  Agent_Job_Activity_Handle h;
  const std::string name = unique_name("missing");
  EXPECT_EQ(-1, h.open(name.c_str(), O_RDWR));
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to memory map " + ACT_DIR + "/" + name +
                                     ", errno=2, No such file or directory\n"));

  for (const char* bad : {"../escape", "sub/job", ".."}) {
    EXPECT_EQ(-1, h.open(bad, O_RDWR | O_CREAT)) << bad;
    EXPECT_TRUE(logs.has(LM_ERROR, std::string("Invalid job activity name '") + bad + "': not a plain file name.\n"))
        << logs.dump();
  }
  EXPECT_FALSE(au_test::exists("/var/opt/norvane/stavora3/agent/escape"));
  EXPECT_EQ(-1, h.open("", O_RDWR));
  EXPECT_TRUE(logs.has_check("name is NULL or \"\"")) << logs.dump();
}
