// The storage behind a Client_IO_Ex: a pool of named, immutable objects (pieces).
// Each kind of pool (a directory, an S3 bucket) implements these three interfaces.
// Failures return false / -1 / null with the reason in `error`; nothing here logs.
// A store and the readers and writers it makes belong to one Client_IO_Ex and are used
// from that connection's thread; a writer dropped without commit leaves nothing.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "framework/client_io/client_io_base.h"

class Pool_Object_Reader {
 public:
  virtual ~Pool_Object_Reader() = default;
  virtual int64_t size() const = 0;
  // Fewer than `len` bytes only at the end of the object.
  virtual ssize_t pread(void* buf, size_t len, uint64_t offset, std::string& error) = 0;
};

// Bytes become an object only through commit(); a writer destroyed before that leaves
// nothing under the name (and, as far as the pool allows, nothing elsewhere).
class Pool_Object_Writer {
 public:
  virtual ~Pool_Object_Writer() = default;
  virtual bool write(const void* buf, size_t len, std::string& error) = 0;
  virtual bool commit(std::string& error) = 0;
};

class Pool_Store {
 public:
  virtual ~Pool_Store() = default;
  virtual std::unique_ptr<Pool_Object_Reader> open_read(const std::string& name,
                                                        std::string& error) = 0;
  virtual std::unique_ptr<Pool_Object_Writer> open_write(const std::string& name,
                                                         std::string& error) = 0;
  // Names of the visible objects that start with `prefix`, sorted.
  virtual bool list(const std::string& prefix, std::vector<std::string>& names,
                    std::string& error) = 0;
};

// A piece name is a relative path of non-empty components, none "." or "..", none
// starting with '.' (those are the pools' own temporary names), without NUL or control
// characters. False with the reason otherwise.
bool valid_piece_name(const std::string& name, std::string& why);

// The store for `url`: "file:///dir", "s3://host:port/bucket" or "s3s://...". Null
// with `error` set for any other or malformed URL, or an unreachable pool.
std::unique_ptr<Pool_Store> make_pool_store(const std::string& url,
                                            const Client_IO_Base::Options& options,
                                            std::string& error);
