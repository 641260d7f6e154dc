#include "framework/base/path_conf.h"

#include <ace/Log_Msg.h>
#include <sys/stat.h>

#include <cerrno>

#include "framework/base/path.h"

namespace {

// 0 when `path` is a directory, ENOENT when nothing is there, else the reason.
int directory_state(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return errno;
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

int make_one_level(const std::string& dir, unsigned mode) {
  if (::mkdir(dir.c_str(), static_cast<mode_t>(mode)) == 0) return 0;
  const int err = errno;
  // Another process may have made it meanwhile; that is as good as our own.
  return err == EEXIST ? directory_state(dir) : err;
}

}  // namespace

int make_directories(const std::string& dir, unsigned mode) {
  if (dir.empty()) return ENOENT;
  const int state = directory_state(dir);
  if (state != ENOENT) return state;
  // Walk the prefixes ending before each separator, then the whole path.
  for (size_t at = dir.find('/', 1); at != std::string::npos; at = dir.find('/', at + 1)) {
    if (dir[at - 1] == '/') continue;
    const std::string level = dir.substr(0, at);
    if (directory_state(level) == 0) continue;
    const int err = make_one_level(level, mode);
    if (err != 0) return err;
  }
  return make_one_level(dir, mode);
}

Path_Conf::Path_Conf(const char* dir, bool leaf_is_dir, const char* name, unsigned mode)
    : path_(nvrt::Path(dir, name).str()),
      directory_(leaf_is_dir ? path_ : nvrt::Path(dir).str()),
      ready_(false) {
  // A bare file name lives in the working directory: nothing to make.
  const int err = directory_.empty() ? 0 : make_directories(directory_, mode);
  ready_ = err == 0;
  if (!ready_) {
    errno = err;
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create directory %C, errno=%d, %m\n"),
               directory_.c_str(), err));
  }
}
