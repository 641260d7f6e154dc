#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <array>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/support/log_capture.h"
#include "utils/agent/tencent/client_io_fs_internal.h"

namespace {

TEST(Client_IO_FS_Mounts, only_entries_of_the_exact_type_count_in_a_hostile_table) {
  au_test::Temp_Dir dir;
  const std::string table = dir.write_file(
      "mtab",
      "# comment line\n"
      "\n"
      "clntiofs_i /mnt/a fuse.clntiofs_i rw,nosuid 0 0\n"
      "clntiofs_i /mnt/with\\040space fuse.clntiofs_i rw 0 0\n"
      "clntiofs_i /mnt/prefix fuse.clntiofs_ix rw 0 0\n"
      "clntiofs_i /mnt/short fuse.clntiofs\n"
      "/dev/sda1 / ext4 rw 0 0\n"
      "lonely-field\n"
      "clntiofs_i /mnt/long" + std::string(40000, 'x') + " fuse.clntiofs_i rw 0 0\n"
      "\x01\xff\xfe \x7f\x02 fuse.clntiofs_i\n"
      "clntiofs_i /mnt/after-long fuse.clntiofs_i rw 0 0\n"
      "clntiofs_i /mnt/no-newline-at-end fuse.clntiofs_i rw 0 0");
  std::set<std::string> out{"/kept"};
  ASSERT_TRUE(client_io_fs::get_mounted_paths(table.c_str(), out));
  EXPECT_EQ((std::set<std::string>{"/kept", "/mnt/a", "/mnt/with space", "/mnt/after-long",
                                   "/mnt/no-newline-at-end", "\x7f\x02"}),
            out);

  au_test::Log_Capture logs;
  const std::string missing = dir / "no-such-table";
  EXPECT_FALSE(client_io_fs::get_mounted_paths(missing.c_str(), out));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to open " + missing +
                                     " for reading, errno=2, No such file or directory\n"))
      << logs.dump();
}

TEST(Client_IO_FS_Mounts, command_lines_name_a_url_and_a_mount_directory_between_spaces) {
  const std::vector<std::array<std::string, 3>> good = {
      {"/opt/bin/clntiofs_i http://s3.local/bucket /mnt/a -f", "http://s3.local/bucket", "/mnt/a"},
      {"clntiofs_i -o ro https://h:443/b?x=1 /mnt/b -f", "https://h:443/b?x=1", "/mnt/b"},
      {"clntiofs_i dedup://pool/x /mnt/c --debug", "dedup://pool/x", "/mnt/c"},
      {"clntiofs_i\tdedups://pool/y\t/mnt/d\t", "dedups://pool/y", "/mnt/d"}};
  for (const auto& c : good) {
    std::string url, dir;
    EXPECT_TRUE(client_io_fs::parse_command_line(c[0], url, dir)) << c[0];
    EXPECT_EQ(c[1] + " " + c[2], url + " " + dir);
  }
  const std::string bad[] = {"clntiofs_i http://s3.local/bucket", "clntiofs_i http://s3.local/bucket /mnt/a",
                             "clntiofs_i ftp://h/b /mnt/e -f", "clntiofs_ihttp://h/b /mnt/e -f",
                             "clntiofs_i http:// /mnt/e -f", "",
                             std::string(200000, ' ') + "http://" + std::string(200000, 'a')};
  for (const std::string& line : bad) {
    std::string url, dir;
    EXPECT_FALSE(client_io_fs::parse_command_line(line, url, dir)) << line.substr(0, 80);
  }
}

TEST(Client_IO_FS_Processes, lists_serving_processes_reports_stale_ones_and_fails_on_unreadable_tables) {
  using namespace std::string_literals;
  au_test::Temp_Dir proc, etc;
  const auto add_process = [&proc](const std::string& pid, const std::string& cmdline) {
    ::mkdir((proc / pid).c_str(), 0755);
    proc.write_file(pid + "/cmdline", cmdline);
  };
  add_process("12", "clntiofs_i\0http://s3/b\0/mnt/a\0-f\0"s);
  add_process("7", "/usr/bin/clntiofs_i\0dedups://p/x\0/mnt/gone\0--opt\0"s);
  add_process("20", "clntiofs_i\0-f\0https://s3/c\0/mnt/c\0"s);  // the mount directory last
  add_process("30", "clntiofs_i\0http://s3/only-url\0"s);
  add_process("5", "bash\0http://s3/b\0/mnt/a\0-f\0"s);
  add_process("41", "\0\0\0"s);
  add_process("42", "clntiofs_i "s + std::string(300000, 'z') + " http://s3/b /mnt/a -f"s);
  add_process("self", "clntiofs_i\0http://s3/b\0/mnt/self\0-f\0"s);
  ::mkdir((proc / "13").c_str(), 0755);  // gone before its command line was read
  const std::string mtab = etc.write_file("mtab", "clntiofs_i /mnt/a fuse.clntiofs_i rw 0 0\n"
                                                  "clntiofs_i /mnt/c fuse.clntiofs_i rw 0 0\n");

  au_test::Log_Capture logs;
  std::vector<Client_IO_FS_Process> out(3);
  ASSERT_TRUE(client_io_fs::list_processes(proc.path().c_str(), mtab.c_str(), out));
  ASSERT_EQ(3u, out.size()) << "42 names its URL past the read cap: not seen";
  EXPECT_EQ(std::make_tuple(7, "dedups://p/x", "/mnt/gone", false),
            std::tie(out[0].pid, out[0].url, out[0].mount_dir, out[0].mounted));
  EXPECT_EQ(std::make_tuple(12, "http://s3/b", "/mnt/a", true),
            std::tie(out[1].pid, out[1].url, out[1].mount_dir, out[1].mounted));
  EXPECT_EQ(std::make_tuple(20, "https://s3/c", "/mnt/c", true),
            std::tie(out[2].pid, out[2].url, out[2].mount_dir, out[2].mounted));
  ASSERT_EQ(1u, logs.records().size()) << logs.dump();
  EXPECT_TRUE(logs.has(LM_ERROR, "/mnt/gone has unmonted, but process clntiofs_i (pid 7) does not exit\n"));

  // An unreadable process list or mount table fails with one line and leaves the list alone.
  logs.clear();
  const std::string missing = proc / "missing";
  EXPECT_FALSE(client_io_fs::list_processes(missing.c_str(), mtab.c_str(), out));
  EXPECT_TRUE(logs.has(LM_ERROR, "Failed to list 'clintiofs_i' process.\n")) << logs.dump();
  EXPECT_FALSE(client_io_fs::list_processes(proc.path().c_str(), missing.c_str(), out));
  EXPECT_EQ(2u, logs.records().size()) << logs.dump();
  EXPECT_EQ(3u, out.size());
}

}  // namespace
