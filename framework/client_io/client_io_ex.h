// A client-I/O connection to a storage pool, chosen by the pool's URL:
//   file:///dir                  a directory (local disk or NFS)
//   s3://host:port/bucket        an S3 bucket over HTTP; s3s:// over HTTPS
//
//   Client_IO_Ex io;
//   if (!io.connect(url, options)) log(io.last_error());
//   io.open("job7/piece-0001", Client_IO_Base::OPEN_WRITE, 0, 0);   // or OPEN_READ
//   ... io.write(...) ...
//   io.close();   // true: the piece is stored and visible under its name
//
// Writes are paced by the options' destination rate windows, reads by the source ones.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "framework/base/api.h"
#include "framework/client_io/client_io_options.h"
#include "framework/client_io/pool_store.h"
#include "framework/client_io/rate_limits.h"

class AGENTUTIL_API Client_IO_Ex : public Client_IO_Base {
 public:
  Client_IO_Ex();
  ~Client_IO_Ex() override;

  // `clock` paces the rate windows (tests pass their own); it must outlive the connection.
  bool connect(const std::string& url, const Options& options,
               Rate_Clock& clock = Rate_Clock::system());
  bool connected() const { return store_ != nullptr; }
  const Options& options() const { return options_; }
  const Options* connection_options() const override { return &options_; }

  bool open(const std::string& path, int mode, int flags, int perm) override;
  ssize_t read(void* buf, size_t len) override;
  ssize_t write(const void* buf, size_t len) override;
  ssize_t pread(void* buf, size_t len, uint64_t offset) override;
  int64_t size() override;
  // Closing a written piece publishes it; a failed close publishes nothing. Closing a
  // piece opened for reading always succeeds.
  bool close() override;
  void abandon() override;

  // The pool's piece names starting with `prefix`, sorted.
  bool list(const std::string& prefix, std::vector<std::string>& names);

 private:
  Options options_;
  std::unique_ptr<Pool_Store> store_;
  std::unique_ptr<Pool_Object_Reader> reader_;
  std::unique_ptr<Pool_Object_Writer> writer_;
  std::unique_ptr<Rate_Limiter> read_pace_;
  std::unique_ptr<Rate_Limiter> write_pace_;
  uint64_t cursor_ = 0;
  bool write_failed_ = false;
};
