// The directory pool when others can write into it: links, FIFOs, modes, durability.
#include "framework/client_io/dir_pool_store.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>

#include "framework/client_io/client_io_ex.h"
#include "tests/support/temp_dir.h"

// Every fsync of this program passes here, so that a test sees which directories a commit
// made durable and can make one of those syncs fail.
namespace fsync_probe {
bool recording = false;
std::vector<std::string> synced;
std::string fail_on;
}  // namespace fsync_probe

extern "C" int fsync(int fd) {
  if (fsync_probe::recording) {
    char buf[PATH_MAX];
    const ssize_t n = ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), buf, sizeof buf);
    fsync_probe::synced.emplace_back(buf, n > 0 ? n : 0);
    if (fsync_probe::synced.back() == fsync_probe::fail_on) return errno = EIO, -1;
  }
  return static_cast<int>(::syscall(SYS_fsync, fd));
}

namespace {

using Names = std::vector<std::string>;
constexpr int R = Client_IO_Base::OPEN_READ, W = Client_IO_Base::OPEN_WRITE;

// Every entry of a directory, hidden ones too.
std::set<std::string> entries(const std::string& path) {
  std::set<std::string> out;
  for (const auto& e : std::filesystem::directory_iterator(path)) out.insert(e.path().filename());
  return out;
}

// Runs `f` in a child that an alarm ends if it blocks; what it returns comes back.
std::string in_child(const std::function<std::string()>& f) {
  int p[2];
  if (::pipe(p) != 0) return "<no pipe>";
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::alarm(30);
    const std::string s = f();
    ::_exit(::write(p[1], s.data(), s.size()) == static_cast<ssize_t>(s.size()) ? 0 : 1);
  }
  ::close(p[1]);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = ::read(p[0], buf, sizeof buf)) > 0;) out.append(buf, n);
  ::close(p[0]);
  int status = 0;
  return ::waitpid(pid, &status, 0) == pid && status == 0 ? out : "<blocked or died>";
}

class Hostile_Pool : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(io.connect("file://" + pool.path(), {})) << io.last_error(); }

  // "" on success, else the error.
  std::string put(const std::string& name, const std::string& bytes = "ours") {
    const bool ok = io.open(name, W, 0, 0) &&
                    io.write(bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) && io.close();
    return ok ? "" : io.last_error();
  }
  // The bytes, or the error.
  std::string get(const std::string& name) {
    std::string out(4096, '\0');
    if (!io.open(name, R, 0, 0)) return io.last_error();
    out.resize(std::max<ssize_t>(io.read(&out[0], out.size()), 0));
    io.close();
    return out;
  }
  std::string refused(const char* what, const std::string& name, const std::string& rel, const char* why) {
    return std::string(what) + " '" + pool.path() + "/" + name + "': '" + rel + "' in the pool " + why + "; refused";
  }

  au_test::Temp_Dir pool, outside;
  Client_IO_Ex io;
};

TEST_F(Hostile_Pool, links_are_refused_or_replaced_but_never_followed) {
  outside.write_file("secret", "local file");
  ASSERT_EQ(::symlink(outside.path().c_str(), (pool / "job7").c_str()), 0);
  ASSERT_EQ(::symlink((outside / "secret").c_str(), (pool / "piece").c_str()), 0);
  ASSERT_EQ(::mkdir((pool / "deep").c_str(), 0700), 0);
  ASSERT_EQ(::symlink(outside.path().c_str(), (pool / "deep/link").c_str()), 0);
  pool.write_file("file", "x");
  const struct {
    int mode;
    const char* name;
    std::string error;
  } cases[] = {
      {W, "job7/disk0/p1", refused("cannot create", "job7/disk0/p1", "job7", "is a symbolic link")},
      {R, "job7/secret", refused("cannot open", "job7/secret", "job7", "is a symbolic link")},
      {R, "piece", refused("cannot open", "piece", "piece", "is a symbolic link")},
      {W, "piece/x", refused("cannot create", "piece/x", "piece", "is a symbolic link")},
      {W, "deep/link/p", refused("cannot create", "deep/link/p", "deep/link", "is a symbolic link")},
      {R, "deep/link/secret", refused("cannot open", "deep/link/secret", "deep/link", "is a symbolic link")},
      {W, "file/p", refused("cannot create", "file/p", "file", "is not a directory")},
      {R, "/etc/passwd", "piece name '/etc/passwd' has an empty or dot-leading component"},
      {W, "a/../../x", "piece name 'a/../../x' has an empty or dot-leading component"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.mode == W ? put(c.name) : get(c.name), c.error) << c.name;
  }
  EXPECT_EQ(entries(outside.path()), std::set<std::string>{"secret"});
  EXPECT_EQ(entries(pool.path()), (std::set<std::string>{"deep", "file", "job7", "piece"}));
  EXPECT_EQ(entries(pool / "deep"), std::set<std::string>{"link"});

  // A piece written over a link replaces the link, not what it points at.
  EXPECT_EQ(put("piece", "new"), "");
  EXPECT_EQ(get("piece"), "new");
  EXPECT_EQ(au_test::mode_of(pool / "piece"), 0600u);
  std::ifstream in(outside / "secret");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "local file");
}

TEST_F(Hostile_Pool, pieces_and_directories_get_their_modes_whatever_the_umask) {
  const struct {
    mode_t umask;
    const char *piece_mode, *dir_mode;
    unsigned piece, dir;
  } cases[] = {{077, nullptr, nullptr, 0600, 0700},
               {022, nullptr, nullptr, 0600, 0700},
               {0, nullptr, nullptr, 0600, 0700},
               {077, "0640", "750", 0640, 0750}};
  const mode_t saved = ::umask(0);
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    const auto& c = cases[i];
    Client_IO_Base::Options options;
    if (c.piece_mode) options.extra_options = {{"file_piece_mode", c.piece_mode}, {"file_directory_mode", c.dir_mode}};
    ::umask(c.umask);
    const std::string job = "job" + std::to_string(i);
    Client_IO_Ex w;
    EXPECT_TRUE(w.connect("file://" + pool.path(), options) && w.open(job + "/disk/p", W, 0, 0) &&
                w.write("x", 1) == 1 && w.close()) << w.last_error();
    EXPECT_EQ(au_test::mode_of(pool / job + "/disk/p"), c.piece) << i;
    EXPECT_EQ(au_test::mode_of(pool / job + "/disk"), S_IFDIR | c.dir) << i;
    EXPECT_EQ(au_test::mode_of(pool / job), S_IFDIR | c.dir) << i;
  }
  ::umask(saved);

  // Modes that others could write through, or that lock the agent out, are refused.
  for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
           {"file_piece_mode", "0666"}, {"file_piece_mode", "0400"}, {"file_directory_mode", "7777"},
           {"file_directory_mode", "0777"}, {"file_piece_mode", "rw"}}) {
    Client_IO_Base::Options options;
    options.extra_options[key] = value;
    Client_IO_Ex w;
    EXPECT_FALSE(w.connect("file://" + pool.path(), options)) << value;
    EXPECT_EQ(w.last_error(), "extra option \"" + key + "\" must be an octal mode granting at least " +
                                  (key == "file_piece_mode" ? "0600, within 0664" : "0700, within 0775"));
  }
}

TEST_F(Hostile_Pool, fifos_and_other_non_files_are_refused_at_once) {
  ASSERT_EQ(::mkfifo((pool / "fifo").c_str(), 0600), 0);
  ASSERT_EQ(::mkdir((pool / "dir").c_str(), 0700), 0);
  const std::string errors = in_child([&] {
    return get("fifo") + "\n" + get("dir") + "\n" + get("fifo/p") + "\n" + put("fifo/p");
  });
  EXPECT_EQ(errors, refused("cannot open", "fifo", "fifo", "is not a regular file") + "\n" +
                        refused("cannot open", "dir", "dir", "is not a regular file") + "\n" +
                        refused("cannot open", "fifo/p", "fifo", "is not a directory") + "\n" +
                        refused("cannot create", "fifo/p", "fifo", "is not a directory"));
  Names names;
  EXPECT_TRUE(io.list("", names) && names.empty()) << io.last_error();
}

TEST_F(Hostile_Pool, listing_neither_follows_nor_lists_links) {
  for (const char* name : {"a/p1", "a/b/p2", "top"}) ASSERT_EQ(put(name), "");
  outside.write_file("q", "x");
  ASSERT_EQ(::symlink((pool / "a/p1").c_str(), (pool / "a/l1").c_str()), 0);
  ASSERT_EQ(::symlink("/nonexistent", (pool / "a/dangling").c_str()), 0);
  ASSERT_EQ(::symlink(outside.path().c_str(), (pool / "ldir").c_str()), 0);
  ASSERT_EQ(::symlink(outside.path().c_str(), (pool / "a/b/ldir").c_str()), 0);
  ASSERT_EQ(::mkfifo((pool / "a/f").c_str(), 0600), 0);
  const struct {
    const char* prefix;
    Names names;
  } cases[] = {{"", {"a/b/p2", "a/p1", "top"}}, {"a/", {"a/b/p2", "a/p1"}}, {"a/b", {"a/b/p2"}},
               {"a/l", {}}, {"ld", {}}, {"t", {"top"}}};
  for (const auto& c : cases) {
    Names names{"stale"};
    EXPECT_TRUE(io.list(c.prefix, names)) << io.last_error();
    EXPECT_EQ(names, c.names) << c.prefix;
  }
}

TEST_F(Hostile_Pool, a_commit_syncs_the_directories_it_made_and_a_failure_leaves_nothing) {
  struct Probe {
    Probe() { fsync_probe::recording = true; }
    ~Probe() { fsync_probe::recording = false, fsync_probe::synced.clear(), fsync_probe::fail_on.clear(); }
  } probe;
  const auto synced = [](const std::string& path) {
    return std::count(fsync_probe::synced.begin(), fsync_probe::synced.end(), path) == 1;
  };
  ASSERT_EQ(put("n1/n2/p"), "");
  EXPECT_TRUE(synced(pool / "n1/n2") && synced(pool / "n1") && synced(pool.path()));
  fsync_probe::synced.clear();
  ASSERT_EQ(put("n1/n3/p"), "");
  EXPECT_TRUE(synced(pool / "n1/n3") && synced(pool / "n1"));

  // A sync that fails takes back the piece and the directories made for it.
  fsync_probe::fail_on = pool.path();
  EXPECT_EQ(put("m1/m2/p"), "cannot sync directory '" + pool.path() + "': Input/output error");
  fsync_probe::fail_on = pool / "n1/n3";
  EXPECT_EQ(put("n1/n3/q"), "cannot sync directory '" + (pool / "n1/n3") + "': Input/output error");
  // So does a writer dropped before its close.
  ASSERT_TRUE(io.open("k1/k2/p", W, 0, 0) && io.write("x", 1) == 1);
  io.abandon();
  EXPECT_EQ(entries(pool.path()), std::set<std::string>{"n1"});
  EXPECT_EQ(entries(pool / "n1"), (std::set<std::string>{"n2", "n3"}));
  EXPECT_EQ(entries(pool / "n1/n3"), std::set<std::string>{"p"});
}

}  // namespace
