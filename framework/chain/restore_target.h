// Where a chain is restored to: an RBD image, a mapped LUN, a file. Thin adapters; what is
// written where is decided by the chain restore.
//
// Failures return false and leave one line in last_error(); the target logs nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "framework/base/api.h"

class AGENTUTIL_API Restore_Target {
 public:
  virtual ~Restore_Target() = default;

  // For log lines: "ceph://rbd/vm-1", "/dev/disk/by-id/wwn-0x...".
  virtual std::string name() const = 0;
  // The size now.
  virtual bool size(uint64_t& bytes) = 0;
  // Grows or shrinks to exactly `bytes` (a target that cannot shrink refuses).
  virtual bool resize(uint64_t bytes) = 0;
  // May queue the bytes (a target copies what it keeps): a failure may show only at
  // a later call or at flush().
  virtual bool write(uint64_t offset, const void* data, size_t length) = 0;
  // The range reads back as zeros afterwards; a target that knows it holds none may skip.
  virtual bool zero(uint64_t offset, uint64_t length) = 0;
  // Everything queued has landed durably; false when anything failed.
  virtual bool flush() = 0;

  const std::string& last_error() const { return last_error_; }

 protected:
  bool fail(std::string text) {
    last_error_ = std::move(text);
    return false;
  }
  std::string last_error_;
};
