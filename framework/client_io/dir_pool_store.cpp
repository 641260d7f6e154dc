#include "framework/client_io/dir_pool_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "framework/base/posix_error.h"

namespace {

std::string sys_error(const std::string& what, const std::string& path) {
  return what + " '" + path + "': " + POSIX_Error().str();
}

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { reset(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
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

class Dir_Reader : public Pool_Object_Reader {
 public:
  Dir_Reader(int fd, int64_t size) : fd_(fd), size_(size) {}
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
  Dir_Writer(int fd, std::string temp, std::string final_path, std::string dir)
      : fd_(fd), temp_(std::move(temp)), final_(std::move(final_path)), dir_(std::move(dir)) {}
  ~Dir_Writer() override {
    if (!committed_) ::unlink(temp_.c_str());
  }

  bool write(const void* buf, size_t len, std::string& error) override {
    const char* p = static_cast<const char*>(buf);
    while (len > 0) {
      const ssize_t n = ::write(fd_.get(), p, len);
      if (n < 0) {
        if (errno == EINTR) continue;
        error = sys_error("cannot write", final_);
        return false;
      }
      p += n;
      len -= static_cast<size_t>(n);
    }
    return true;
  }

  bool commit(std::string& error) override {
    if (::fsync(fd_.get()) != 0) return (error = sys_error("cannot sync", final_)), false;
    if (fd_.release_and_close() != 0) return (error = sys_error("cannot close", final_)), false;
    if (::rename(temp_.c_str(), final_.c_str()) != 0) {
      return (error = sys_error("cannot publish", final_)), false;
    }
    committed_ = true;
    // The rename is durable only once the directory is; a piece whose close failed must
    // not stay visible.
    Fd dir(::open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.get() < 0 || ::fsync(dir.get()) != 0) {
      error = sys_error("cannot sync directory", dir_);
      ::unlink(final_.c_str());
      return false;
    }
    return true;
  }

 private:
  Fd fd_;
  std::string temp_, final_, dir_;
  bool committed_ = false;
};

bool make_parents(const std::string& root, const std::string& name, std::string& error) {
  size_t slash = name.find('/');
  while (slash != std::string::npos) {
    const std::string dir = root + "/" + name.substr(0, slash);
    if (::mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
      error = sys_error("cannot create directory", dir);
      return false;
    }
    slash = name.find('/', slash + 1);
  }
  return true;
}

}  // namespace

std::unique_ptr<Pool_Store> Dir_Pool_Store::connect(const std::string& root, std::string& error) {
  struct stat st;
  if (root.empty() || root[0] != '/') {
    error = "a directory pool needs an absolute path (file:///dir)";
    return nullptr;
  }
  if (::stat(root.c_str(), &st) != 0) return (error = sys_error("cannot reach pool", root)), nullptr;
  if (!S_ISDIR(st.st_mode)) return (error = "pool '" + root + "' is not a directory"), nullptr;
  std::string trimmed = root;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  return std::unique_ptr<Pool_Store>(new Dir_Pool_Store(trimmed));
}

std::unique_ptr<Pool_Object_Reader> Dir_Pool_Store::open_read(const std::string& name,
                                                              std::string& error) {
  if (!valid_piece_name(name, error)) return nullptr;
  const std::string path = root_ + "/" + name;
  Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat st;
  if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0) return (error = sys_error("cannot open", path)), nullptr;
  if (!S_ISREG(st.st_mode)) return (error = "'" + path + "' is not a piece file"), nullptr;
  return std::unique_ptr<Pool_Object_Reader>(new Dir_Reader(fd.release(), st.st_size));
}

std::unique_ptr<Pool_Object_Writer> Dir_Pool_Store::open_write(const std::string& name,
                                                               std::string& error) {
  if (!valid_piece_name(name, error) || !make_parents(root_, name, error)) return nullptr;
  const std::string final_path = root_ + "/" + name;
  const size_t slash = final_path.rfind('/');
  const std::string dir = final_path.substr(0, slash);
  std::string temp = dir + "/." + final_path.substr(slash + 1) + ".XXXXXX";
  const int fd = ::mkostemp(&temp[0], O_CLOEXEC);
  if (fd < 0) return (error = sys_error("cannot create", temp)), nullptr;
  ::fchmod(fd, 0644);
  return std::unique_ptr<Pool_Object_Writer>(new Dir_Writer(fd, temp, final_path, dir));
}

bool Dir_Pool_Store::list(const std::string& prefix, std::vector<std::string>& names,
                          std::string& error) {
  namespace fs = std::filesystem;
  std::error_code ec;
  std::vector<std::string> found;
  fs::recursive_directory_iterator it(root_, ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    const std::string leaf = it->path().filename().string();
    if (!leaf.empty() && leaf[0] == '.') {
      if (it->is_directory()) it.disable_recursion_pending();
      continue;
    }
    if (!it->is_regular_file()) continue;
    std::string rel = it->path().string().substr(root_.size() + 1);
    if (rel.compare(0, prefix.size(), prefix) == 0) found.push_back(std::move(rel));
  }
  if (ec) return (error = "cannot list pool '" + root_ + "': " + ec.message()), false;
  std::sort(found.begin(), found.end());
  names.swap(found);
  return true;
}
