// A scratch directory under $TMPDIR (or /tmp) for tests that need real files,
// removed with everything in it when the object goes.
#pragma once

#include <ftw.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace au_test {

class Temp_Dir {
 public:
  Temp_Dir() {
    const char* base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/au_test.XXXXXX";
    if (::mkdtemp(&tmpl[0]) != nullptr) path_ = tmpl;
  }
  ~Temp_Dir() {
    if (!path_.empty()) ::nftw(path_.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
  }
  Temp_Dir(const Temp_Dir&) = delete;
  Temp_Dir& operator=(const Temp_Dir&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& leaf) const { return path_ + "/" + leaf; }

  // Writes `content` to path()/leaf; returns the full path.
  std::string write_file(const std::string& leaf, const std::string& content) const {
    const std::string p = *this / leaf;
    std::ofstream(p, std::ios::binary) << content;
    return p;
  }

 private:
  static int remove_entry(const char* p, const struct stat*, int type, struct FTW*) {
    if (type == FTW_DP) ::chmod(p, 0700);  // tests make unreadable directories too
    std::remove(p);  // keep going past anything that will not go
    return 0;
  }
  std::string path_;
};

inline mode_t mode_of(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

inline bool is_directory(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

inline bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace au_test
