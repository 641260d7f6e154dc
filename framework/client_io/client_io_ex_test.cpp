#include "framework/client_io/client_io_ex.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <dirent.h>

#include "tests/support/temp_dir.h"

namespace {

class Dir_Pool : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(io.connect("file://" + dir.path(), {})) << io.last_error(); }

  std::string read_piece(const std::string& name) {
    Client_IO_Ex r;
    std::string out(1 << 16, '\0');
    if (!r.connect("file://" + dir.path(), {}) || !r.open(name, Client_IO_Base::OPEN_READ, 0, 0)) return "<none>";
    const ssize_t n = r.read(&out[0], out.size());
    out.resize(n < 0 ? 0 : n);
    return out;
  }
  std::vector<std::string> listed() {
    std::vector<std::string> names;
    EXPECT_TRUE(io.list("", names)) << io.last_error();
    return names;
  }
  // Every entry of a directory, hidden ones too.
  std::vector<std::string> entries(const std::string& path) {
    std::vector<std::string> out;
    if (DIR* d = ::opendir(path.c_str())) {
      while (dirent* e = ::readdir(d)) {
        if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") out.push_back(e->d_name);
      }
      ::closedir(d);
    }
    return out;
  }

  au_test::Temp_Dir dir;
  Client_IO_Ex io;
};

TEST_F(Dir_Pool, a_piece_appears_whole_only_when_close_succeeds) {
  ASSERT_TRUE(io.open("job/p1", Client_IO_Base::OPEN_WRITE, 0, 0)) << io.last_error();
  ASSERT_EQ(io.write("hello ", 6), 6);
  EXPECT_EQ(read_piece("job/p1"), "<none>");
  EXPECT_TRUE(listed().empty());
  ASSERT_EQ(io.write("world", 5), 5);
  ASSERT_TRUE(io.close()) << io.last_error();
  EXPECT_EQ(read_piece("job/p1"), "hello world");
  EXPECT_EQ(listed(), std::vector<std::string>{"job/p1"});
  EXPECT_EQ(io.bytes_written(), 11u);

  // A replacement leaves the old piece readable until it is published.
  ASSERT_TRUE(io.open("job/p1", Client_IO_Base::OPEN_WRITE, 0, 0));
  ASSERT_EQ(io.write("new", 3), 3);
  EXPECT_EQ(read_piece("job/p1"), "hello world");
  ASSERT_TRUE(io.close());
  EXPECT_EQ(read_piece("job/p1"), "new");

  // Reading: sequential, positioned, size, counts.
  ASSERT_TRUE(io.open("job/p1", Client_IO_Base::OPEN_READ, 0, 0));
  char buf[8] = {};
  EXPECT_EQ(io.size(), 3);
  EXPECT_EQ(io.pread(buf, 8, 1), 2);
  EXPECT_EQ(std::string(buf, 2), "ew");
  EXPECT_EQ(io.read(buf, 8), 3);
  EXPECT_EQ(io.read(buf, 8), 0);
  EXPECT_EQ(io.bytes_read(), 5u);
  EXPECT_TRUE(io.close());
}

TEST_F(Dir_Pool, an_abandoned_killed_or_unsynced_writer_leaves_nothing_readable) {
  {
    Client_IO_Ex w;
    ASSERT_TRUE(w.connect("file://" + dir.path(), {}));
    ASSERT_TRUE(w.open("dropped", Client_IO_Base::OPEN_WRITE, 0, 0));
    ASSERT_EQ(w.write("partial", 7), 7);
  }
  EXPECT_TRUE(entries(dir.path()).empty());

  const pid_t child = ::fork();
  if (child == 0) {
    Client_IO_Ex w;
    w.connect("file://" + dir.path(), {});
    w.open("killed", Client_IO_Base::OPEN_WRITE, 0, 0);
    w.write("half a piece", 12);
    ::_exit(0);  // dies without closing
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(read_piece("killed"), "<none>");
  EXPECT_TRUE(listed().empty());

  // Renamed into place, but the directory cannot be synced: every descriptor under the
  // limit is taken and the piece's own, freed by then, lies above it.
  const pid_t unsynced = ::fork();
  if (unsynced == 0) {
    for (int fd = 0; fd >= 0 && fd < 100;) fd = ::dup(0);
    Client_IO_Ex w;
    w.connect("file://" + dir.path(), {});
    w.open("unsynced", Client_IO_Base::OPEN_WRITE, 0, 0);
    w.write("a whole piece", 13);
    const rlimit few = {100, 100};
    ::setrlimit(RLIMIT_NOFILE, &few);
    const bool refused = !w.close() && w.last_error().rfind("cannot sync directory", 0) == 0;
    ::_exit(refused ? 0 : 1);
  }
  ASSERT_EQ(::waitpid(unsynced, &status, 0), unsynced);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "close did not fail at the directory sync";
  EXPECT_EQ(read_piece("unsynced"), "<none>");
  EXPECT_TRUE(listed().empty());
}

TEST_F(Dir_Pool, refusals_name_their_reason) {
  const struct {
    const char* name;
    int mode;
    const char* error;
  } cases[] = {
      {"../escape", Client_IO_Base::OPEN_WRITE, "piece name '../escape' has an empty or dot-leading component"},
      {".hidden", Client_IO_Base::OPEN_READ, "piece name '.hidden' has an empty or dot-leading component"},
      {"a//b", Client_IO_Base::OPEN_WRITE, "piece name 'a//b' has an empty or dot-leading component"},
      {"a/", Client_IO_Base::OPEN_WRITE, "piece name 'a/' has an empty or dot-leading component"},
      {"", Client_IO_Base::OPEN_READ, "a piece name must have 1 to 1024 characters"},
      {"x", 3, "unknown open mode 3"},
  };
  for (const auto& c : cases) {
    EXPECT_FALSE(io.open(c.name, c.mode, 0, 0)) << c.name;
    EXPECT_EQ(io.last_error(), c.error);
  }
  EXPECT_FALSE(io.open("missing", Client_IO_Base::OPEN_READ, 0, 0));
  EXPECT_EQ(io.last_error(), "cannot open '" + dir.path() + "/missing': No such file or directory");
  char b;
  EXPECT_EQ(io.read(&b, 1), -1);
  EXPECT_EQ(io.last_error(), "no piece open for reading");

  Client_IO_Ex other;
  for (const char* url : {"ftp://x/y", "file://relative", "s4://user:pw@host/b"}) {
    EXPECT_FALSE(other.connect(url, {})) << url;
    EXPECT_EQ(other.last_error().find("pw"), std::string::npos);
  }
  EXPECT_FALSE(other.connect("file://" + dir.path() + "/none", {}));
  EXPECT_EQ(other.last_error(), "cannot reach pool '" + dir.path() + "/none': No such file or directory");
}

}  // namespace
