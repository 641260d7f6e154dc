// A pool in a local directory (or an NFS mount). Pieces are files under it; a written
// piece goes to a hidden temporary file beside its final name and is published by
// fsync, rename and an fsync of the directory, so a reader finds either the whole piece
// or none, even after a crash of the writer or the machine.
#pragma once

#include <memory>
#include <string>

#include "framework/client_io/pool_store.h"

class Dir_Pool_Store : public Pool_Store {
 public:
  // `root` must be an absolute path to an existing directory.
  static std::unique_ptr<Pool_Store> connect(const std::string& root, std::string& error);

  std::unique_ptr<Pool_Object_Reader> open_read(const std::string& name,
                                                std::string& error) override;
  std::unique_ptr<Pool_Object_Writer> open_write(const std::string& name,
                                                 std::string& error) override;
  bool list(const std::string& prefix, std::vector<std::string>& names,
            std::string& error) override;

 private:
  explicit Dir_Pool_Store(std::string root) : root_(std::move(root)) {}
  std::string root_;
};
