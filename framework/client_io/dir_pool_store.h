// A pool in a local directory (or an NFS mount). Pieces are files under it; a written
// piece goes to a hidden temporary file beside its final name and is published by
// fsync, rename and an fsync of its directory (and of the parent of every directory
// made for it), so a reader finds either the whole piece or none, even after a crash of
// the writer or the machine.
//
// Others may write into the pool, and the agent may run as root: everything under the
// root is reached component by component from the root's descriptor, never through a
// symbolic link, and a piece is read only if it is a regular file. Pieces are made 0600
// and directories 0700 whatever the umask, unless the options' extra_options say
// otherwise: "file_piece_mode" (within 0664, at least 0600) and "file_directory_mode"
// (within 0775, at least 0700), octal text such as "0640".
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "framework/client_io/pool_store.h"

class Dir_Pool_Store : public Pool_Store {
 public:
  // `root` must be an absolute path to an existing directory.
  static std::unique_ptr<Pool_Store> connect(const std::string& root,
                                             const Client_IO_Base::Options& options,
                                             std::string& error);

  std::unique_ptr<Pool_Object_Reader> open_read(const std::string& name,
                                                std::string& error) override;
  std::unique_ptr<Pool_Object_Writer> open_write(const std::string& name,
                                                 std::string& error) override;
  bool list(const std::string& prefix, std::vector<std::string>& names,
            std::string& error) override;

 private:
  Dir_Pool_Store(std::string root, mode_t piece_mode, mode_t directory_mode)
      : root_(std::move(root)), piece_mode_(piece_mode), directory_mode_(directory_mode) {}
  std::string root_;
  mode_t piece_mode_, directory_mode_;
};
