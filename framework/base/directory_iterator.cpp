#include "framework/base/directory_iterator.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

Directory_Reader::Directory_Reader(const char* path)
    : path_(path ? path : ""), dir_(::opendir(path_.c_str())), last_error_(0) {
  if (dir_ == nullptr) last_error_ = errno;
}

Directory_Reader::~Directory_Reader() {
  if (dir_ != nullptr) ::closedir(dir_);
}

bool Directory_Reader::next(Directory_Entry& entry) {
  if (dir_ == nullptr) return false;
  for (;;) {
    errno = 0;  // readdir reports an error only through errno
    const struct dirent* d = ::readdir(dir_);
    if (d == nullptr) {
      last_error_ = errno;
      return false;
    }
    if (std::strcmp(d->d_name, ".") == 0 || std::strcmp(d->d_name, "..") == 0) continue;
    entry = Directory_Entry(d->d_name, entry_is_dir(*d));
    return true;
  }
}

bool Directory_Reader::entry_is_dir(const struct dirent& d) const {
  if (d.d_type == DT_DIR) return true;
  // Only links and file systems that do not fill d_type cost a stat.
  if (d.d_type != DT_UNKNOWN && d.d_type != DT_LNK) return false;
  struct stat st;
  return ::fstatat(::dirfd(dir_), d.d_name, &st, 0) == 0 && S_ISDIR(st.st_mode);
}
