#include "framework/client_io/dir_pool_store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "framework/base/posix_error.h"
#include "framework/client_io/client_io_options.h"

namespace {

// How the walk holds directories: O_PATH asks for search permission only, as a path
// lookup does, and O_NOFOLLOW with O_DIRECTORY refuses a symbolic link or anything else
// that is not a directory without opening it.
constexpr int DIR_ANCHOR = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

std::string sys_error(const std::string& what, const std::string& path) {
  return what + " '" + path + "': " + POSIX_Error().str();
}

std::string refused(const std::string& what, const std::string& path, const std::string& rel,
                    const char* reason) {
  return what + " '" + path + "': '" + rel + "' in the pool " + reason + "; refused";
}

// Why `rel` (named `leaf` in `dir`) could not be opened with O_NOFOLLOW, given its errno.
std::string explain(int dir, const std::string& leaf, int err, const std::string& what,
                    const std::string& path, const std::string& rel) {
  struct stat st;
  if ((err == ELOOP || err == ENOTDIR) &&
      ::fstatat(dir, leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
    if (S_ISLNK(st.st_mode)) return refused(what, path, rel, "is a symbolic link");
    if (!S_ISDIR(st.st_mode)) return refused(what, path, rel, "is not a directory");
  }
  errno = err;
  return sys_error(what, path);
}

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { reset(); }
  Fd(Fd&& o) noexcept : fd_(o.release()) {}
  Fd& operator=(Fd&& o) noexcept {
    if (this != &o) {
      reset();
      fd_ = o.release();
    }
    return *this;
  }
  int get() const { return fd_; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  // Keeps errno: callers close on their way to reporting it.
  void reset() {
    const int saved = errno;
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    errno = saved;
  }
  // close(2)'s own answer: NFS reports deferred write errors here.
  int release_and_close() {
    const int r = ::close(fd_);
    fd_ = -1;
    return r;
  }

 private:
  int fd_;
};

// A directory made for a piece: its entry lives in `parent`.
struct Made_Dir {
  Fd parent;
  std::string name, parent_path;
};

// Where a piece lives, reached from the pool root one component at a time.
struct Piece_Dir {
  Fd dir;
  std::string path;  // of `dir`, for messages
  std::string leaf;  // the piece's name in it
  std::vector<Made_Dir> made;  // outermost first
};

// What is still empty goes: another writer may have put a piece there meanwhile.
void remove_made(std::vector<Made_Dir>& made) {
  for (auto it = made.rbegin(); it != made.rend(); ++it) {
    ::unlinkat(it->parent.get(), it->name.c_str(), AT_REMOVEDIR);
  }
  made.clear();
}

// Walks from `root` to the directory of `name` (a valid piece name), never through a
// symbolic link. With a `dir_mode`, missing directories are made with exactly that mode.
bool walk(const std::string& root, const std::string& name, mode_t dir_mode, const char* what,
          Piece_Dir& out, std::string& error) {
  const std::string path = root + "/" + name;
  // The root itself is the agent's own setting, so links in it are followed.
  Fd cur(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (cur.get() < 0) return (error = sys_error("cannot reach pool", root)), false;
  out.path = root;
  size_t start = 0;
  for (size_t slash; (slash = name.find('/', start)) != std::string::npos; start = slash + 1) {
    const std::string comp = name.substr(start, slash - start);
    const std::string rel = name.substr(0, slash);
    const int at = cur.get();
    Fd next(::openat(at, comp.c_str(), DIR_ANCHOR));
    if (next.get() < 0 && errno == ENOENT && dir_mode != 0) {
      if (::mkdirat(at, comp.c_str(), dir_mode) == 0) {
        out.made.push_back({std::move(cur), comp, out.path});
        // Opened for real, to set the mode past the umask; a link put in its place
        // meanwhile is refused like any other.
        next = Fd(::openat(at, comp.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (next.get() >= 0 && ::fchmod(next.get(), dir_mode) != 0) {
          return (error = sys_error("cannot create directory", root + "/" + rel)), false;
        }
      } else if (errno == EEXIST) {
        next = Fd(::openat(at, comp.c_str(), DIR_ANCHOR));  // made by another writer
      } else {
        return (error = sys_error("cannot create directory", root + "/" + rel)), false;
      }
    }
    if (next.get() < 0) return (error = explain(at, comp, errno, what, path, rel)), false;
    cur = std::move(next);
    out.path = root + "/" + rel;
  }
  out.dir = std::move(cur);
  out.leaf = name.substr(start);
  return true;
}

// A fresh descriptor for each sync: the anchors are O_PATH, which fsync refuses.
bool sync_dir(int anchor, const std::string& path, std::string& error) {
  Fd dir(::openat(anchor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() >= 0 && ::fsync(dir.get()) == 0) return true;
  error = sys_error("cannot sync directory", path);
  return false;
}

std::string random_suffix() {
  static const char alphabet[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  unsigned char bytes[12];
  if (::getrandom(bytes, sizeof bytes, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof bytes)) {
    // Guessable, which costs only retries: O_EXCL and O_NOFOLLOW refuse what is there.
    timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t x = static_cast<uint64_t>(ts.tv_nsec) ^ (static_cast<uint64_t>(::getpid()) << 32);
    for (unsigned char& b : bytes) b = static_cast<unsigned char>((x = x * 6364136223846793005u + 1) >> 56);
  }
  std::string s;
  for (unsigned char b : bytes) s += alphabet[b % (sizeof alphabet - 1)];
  return s;
}

class Dir_Reader : public Pool_Object_Reader {
 public:
  Dir_Reader(Fd fd, int64_t size) : fd_(std::move(fd)), size_(size) {}
  int64_t size() const override { return size_; }
  ssize_t pread(void* buf, size_t len, uint64_t offset, std::string& error) override {
    size_t done = 0;
    while (done < len) {
      const ssize_t n = ::pread(fd_.get(), static_cast<char*>(buf) + done, len - done,
                                static_cast<off_t>(offset + done));
      if (n == 0) break;
      if (n < 0) {
        if (errno == EINTR) continue;
        error = "read failed: " + POSIX_Error().str();
        return -1;
      }
      done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
  }

 private:
  Fd fd_;
  int64_t size_;
};

class Dir_Writer : public Pool_Object_Writer {
 public:
  Dir_Writer(Fd fd, std::string temp, std::string path, Piece_Dir at)
      : fd_(std::move(fd)), temp_(std::move(temp)), path_(std::move(path)), at_(std::move(at)) {}
  ~Dir_Writer() override {
    if (published_) return;
    ::unlinkat(at_.dir.get(), temp_.c_str(), 0);
    remove_made(at_.made);
  }

  bool write(const void* buf, size_t len, std::string& error) override {
    const char* p = static_cast<const char*>(buf);
    while (len > 0) {
      const ssize_t n = ::write(fd_.get(), p, len);
      if (n < 0) {
        if (errno == EINTR) continue;
        error = sys_error("cannot write", path_);
        return false;
      }
      p += n;
      len -= static_cast<size_t>(n);
    }
    return true;
  }

  bool commit(std::string& error) override {
    if (::fsync(fd_.get()) != 0) return (error = sys_error("cannot sync", path_)), false;
    if (fd_.release_and_close() != 0) return (error = sys_error("cannot close", path_)), false;
    const int dir = at_.dir.get();
    if (::renameat(dir, temp_.c_str(), dir, at_.leaf.c_str()) != 0) {
      return (error = sys_error("cannot publish", path_)), false;
    }
    // The rename is durable once its directory is, and a directory made for the piece
    // once its parent is. A piece not known durable must not stay visible: the
    // destructor then takes back the directories made for it too.
    bool synced = sync_dir(dir, at_.path, error);
    for (auto it = at_.made.rbegin(); synced && it != at_.made.rend(); ++it) {
      synced = sync_dir(it->parent.get(), it->parent_path, error);
    }
    if (!synced) {
      ::unlinkat(dir, at_.leaf.c_str(), 0);
      return false;
    }
    published_ = true;
    return true;
  }

 private:
  Fd fd_;
  std::string temp_, path_;
  Piece_Dir at_;
  bool published_ = false;
};

// An octal mode from the options' extra_options[key], within `allowed`, granting `needed`.
bool read_mode(const Client_IO_Base::Options& options, const char* key, mode_t allowed,
               mode_t needed, mode_t& mode, std::string& error) {
  const auto it = options.extra_options.find(key);
  if (it == options.extra_options.end()) return true;
  const std::string& text = it->second;
  const mode_t m = static_cast<mode_t>(std::strtoul(text.c_str(), nullptr, 8));
  if (text.empty() || text.size() > 4 || text.find_first_not_of("01234567") != std::string::npos ||
      (m & ~allowed) != 0 || (m & needed) != needed) {
    char why[96];
    std::snprintf(why, sizeof why, "\" must be an octal mode granting at least %04o, within %04o",
                  static_cast<unsigned>(needed), static_cast<unsigned>(allowed));
    error = std::string("extra option \"") + key + why;
    return false;
  }
  mode = m;
  return true;
}

bool starts_with(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

// Adds the pieces under `dir` (the pool's `rel`, "" for the root) whose names start with
// `prefix`. Only regular files are pieces and only real directories are entered.
bool list_dir(const Fd& dir, const std::string& rel, const std::string& prefix,
              const std::string& root, std::vector<std::string>& found, std::string& error) {
  const std::string where = rel.empty() ? root : root + "/" + rel;
  std::vector<std::string> subdirs;
  const int copy = ::fcntl(dir.get(), F_DUPFD_CLOEXEC, 0);
  DIR* d = copy >= 0 ? ::fdopendir(copy) : nullptr;
  if (d == nullptr) {
    error = sys_error("cannot list pool", where);
    if (copy >= 0) ::close(copy);
    return false;
  }
  for (;;) {
    errno = 0;
    const dirent* e = ::readdir(d);
    if (e == nullptr) break;
    const std::string leaf = e->d_name;
    if (leaf[0] == '.') continue;  // ".", ".." and the pools' temporary names
    const std::string name = rel.empty() ? leaf : rel + "/" + leaf;
    unsigned char type = e->d_type;
    struct stat st;
    if (type == DT_UNKNOWN) {  // some file systems (older NFS, XFS) leave it to a stat
      if (::fstatat(dir.get(), leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
      type = S_ISREG(st.st_mode) ? DT_REG : S_ISDIR(st.st_mode) ? DT_DIR : DT_UNKNOWN;
    }
    std::string why;
    if (type == DT_REG && starts_with(name, prefix) && valid_piece_name(name, why)) {
      found.push_back(name);
    } else if (type == DT_DIR && name.size() < 1024 &&
               (starts_with(name + "/", prefix) || starts_with(prefix, name + "/"))) {
      subdirs.push_back(leaf);
    }
  }
  const int err = errno;
  ::closedir(d);
  if (err != 0) return (errno = err, error = sys_error("cannot list pool", where)), false;

  for (const std::string& leaf : subdirs) {
    Fd sub(::openat(dir.get(), leaf.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (sub.get() < 0) {
      // Gone or replaced since it was read (a link now): nothing of ours to list.
      if (errno == ENOENT || errno == ELOOP || errno == ENOTDIR) continue;
      return (error = sys_error("cannot list pool", where + "/" + leaf)), false;
    }
    if (!list_dir(sub, rel.empty() ? leaf : rel + "/" + leaf, prefix, root, found, error)) return false;
  }
  return true;
}

}  // namespace

std::unique_ptr<Pool_Store> Dir_Pool_Store::connect(const std::string& root,
                                                    const Client_IO_Base::Options& options,
                                                    std::string& error) {
  struct stat st;
  if (root.empty() || root[0] != '/') {
    error = "a directory pool needs an absolute path (file:///dir)";
    return nullptr;
  }
  if (::stat(root.c_str(), &st) != 0) return (error = sys_error("cannot reach pool", root)), nullptr;
  if (!S_ISDIR(st.st_mode)) return (error = "pool '" + root + "' is not a directory"), nullptr;
  mode_t piece_mode = 0600, directory_mode = 0700;
  if (!read_mode(options, "file_piece_mode", 0664, 0600, piece_mode, error) ||
      !read_mode(options, "file_directory_mode", 0775, 0700, directory_mode, error)) {
    return nullptr;
  }
  std::string trimmed = root;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  return std::unique_ptr<Pool_Store>(new Dir_Pool_Store(trimmed, piece_mode, directory_mode));
}

std::unique_ptr<Pool_Object_Reader> Dir_Pool_Store::open_read(const std::string& name,
                                                              std::string& error) {
  if (!valid_piece_name(name, error)) return nullptr;
  const std::string path = root_ + "/" + name;
  Piece_Dir at;
  if (!walk(root_, name, 0, "cannot open", at, error)) return nullptr;
  // Looked at before it is opened, since opening a device can act on it; then opened
  // without blocking, in case a FIFO took its place meanwhile, and looked at again.
  struct stat st;
  if (::fstatat(at.dir.get(), at.leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return (error = sys_error("cannot open", path)), nullptr;
  }
  if (S_ISLNK(st.st_mode)) return (error = refused("cannot open", path, name, "is a symbolic link")), nullptr;
  if (!S_ISREG(st.st_mode)) return (error = refused("cannot open", path, name, "is not a regular file")), nullptr;
  Fd fd(::openat(at.dir.get(), at.leaf.c_str(),
                 O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (fd.get() < 0) return (error = explain(at.dir.get(), at.leaf, errno, "cannot open", path, name)), nullptr;
  if (::fstat(fd.get(), &st) != 0) return (error = sys_error("cannot open", path)), nullptr;
  if (!S_ISREG(st.st_mode)) return (error = refused("cannot open", path, name, "is not a regular file")), nullptr;
  const int flags = ::fcntl(fd.get(), F_GETFL);
  if (flags < 0 || ::fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) {
    return (error = sys_error("cannot open", path)), nullptr;
  }
  return std::unique_ptr<Pool_Object_Reader>(new Dir_Reader(std::move(fd), st.st_size));
}

std::unique_ptr<Pool_Object_Writer> Dir_Pool_Store::open_write(const std::string& name,
                                                               std::string& error) {
  if (!valid_piece_name(name, error)) return nullptr;
  const std::string path = root_ + "/" + name;
  Piece_Dir at;
  if (!walk(root_, name, directory_mode_, "cannot create", at, error)) {
    remove_made(at.made);
    return nullptr;
  }
  // The temporary name is hidden (listing skips it) and random; O_EXCL and O_NOFOLLOW
  // refuse whatever another party put there first. Its leaf is cut to stay in NAME_MAX.
  std::string temp;
  Fd fd;
  for (int tries = 0; fd.get() < 0 && tries < 8; ++tries) {
    temp = "." + at.leaf.substr(0, 200) + "." + random_suffix();
    fd = Fd(::openat(at.dir.get(), temp.c_str(),
                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, piece_mode_));
    if (fd.get() < 0 && errno != EEXIST) break;
  }
  // The mode is set past the umask.
  if (fd.get() < 0 || ::fchmod(fd.get(), piece_mode_) != 0) {
    error = sys_error("cannot create", path);
    if (fd.get() >= 0) ::unlinkat(at.dir.get(), temp.c_str(), 0);
    remove_made(at.made);
    return nullptr;
  }
  return std::unique_ptr<Pool_Object_Writer>(new Dir_Writer(std::move(fd), temp, path, std::move(at)));
}

bool Dir_Pool_Store::list(const std::string& prefix, std::vector<std::string>& names,
                          std::string& error) {
  Fd dir(::open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() < 0) return (error = sys_error("cannot list pool", root_)), false;
  std::vector<std::string> found;
  if (!list_dir(dir, "", prefix, root_, found, error)) return false;
  std::sort(found.begin(), found.end());
  names.swap(found);
  return true;
}
