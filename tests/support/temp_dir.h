// A scratch directory for tests that need real files, removed with its contents.
#pragma once

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace au_test {

class Temp_Dir {
 public:
  Temp_Dir() {
    std::string tmpl = "/tmp/au_test.XXXXXX";
    if (::mkdtemp(&tmpl[0]) != nullptr) path_ = tmpl;
  }
  ~Temp_Dir() { ::nftw(path_.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS); }
  Temp_Dir(const Temp_Dir&) = delete;
  Temp_Dir& operator=(const Temp_Dir&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& leaf) const { return path_ + "/" + leaf; }
  // Mode 0600, as a file holding a secret must be.
  std::string write_file(const std::string& leaf, const std::string& content) const {
    const std::string path = *this / leaf;
    std::ofstream(path, std::ios::binary) << content;
    ::chmod(path.c_str(), 0600);
    return path;
  }

 private:
  static int remove_entry(const char* p, const struct stat*, int, struct FTW*) {
    std::remove(p);
    return 0;
  }
  std::string path_;
};

// Permission bits of `path`, or ~0 when it is missing; S_IFDIR is kept for directories.
inline unsigned mode_of(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return ~0u;
  return st.st_mode & (07777 | (S_ISDIR(st.st_mode) ? S_IFDIR : 0));
}
inline bool exists(const std::string& path) { return mode_of(path) != ~0u; }

}  // namespace au_test
