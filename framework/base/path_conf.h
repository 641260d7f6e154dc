// A configured location: the path dir/name, with the directory that is to hold
// things made on construction when it is missing.
//
//   Path_Conf(dir, false, name, mode)  file dir/name;      dir is made
//   Path_Conf(dir, true,  name, mode)  directory dir/name; dir/name is made
//
// The directory is made like `mkdir -p`: every missing level, each with `mode`
// (minus the process umask). A failure to make it is logged once at LM_ERROR with
// the errno text and never thrown: the object still names the path, and opening
// it later fails cleanly with its own error. ready() tells whether the directory
// exists after construction.
#pragma once

#include <string>

#include "framework/base/api.h"

class AGENTUTIL_API Path_Conf {
 public:
  Path_Conf(const char* dir, bool leaf_is_dir, const char* name, unsigned mode);

  const std::string& str() const { return path_; }
  const char* c_str() const { return path_.c_str(); }
  // The directory that was made (or found) on construction.
  const std::string& directory() const { return directory_; }
  bool ready() const { return ready_; }

 private:
  std::string path_;
  std::string directory_;
  bool ready_;
};

// mkdir -p: makes `dir` and every missing parent with `mode`. Returns 0, or the
// errno of the step that failed (ENOTDIR when a level exists but is no directory).
AGENTUTIL_API int make_directories(const std::string& dir, unsigned mode);
