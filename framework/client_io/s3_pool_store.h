// A pool in an S3 bucket (s3://host:port/bucket[/prefix], s3s:// for HTTPS).
//
// A piece is one object. It is uploaded in one PUT when it fits one part (the options'
// resume buffer size), otherwise as a multipart upload with up to three parts in flight;
// S3 makes the object visible only when the upload completes, which close() does. A
// writer dropped before that aborts its upload, so that no parts are left behind.
// Sequential reads share one streaming GET to the object's end, other reads are ranged
// GETs of their bytes. Concurrent requests run on S3_Transfers, moved by the calling
// thread: no thread is started here. Memory per reader: a 1 MiB ring for what a socket
// read brings beyond the waiting read, and libcurl's 16 KiB buffer; per writer: the
// part being filled and up to three parts in flight, each of the part size (128 MiB in
// all by default; a smaller resume buffer size lowers it).
#pragma once

#include <memory>
#include <string>

#include "framework/client_io/pool_store.h"
#include "framework/client_io/s3_client.h"

class S3_Pool_Store : public Pool_Store {
 public:
  // Checks that the bucket answers to the keys before anything else is tried.
  static std::unique_ptr<Pool_Store> connect(const std::string& url,
                                             const Client_IO_Base::Options& options,
                                             std::string& error);

  std::unique_ptr<Pool_Object_Reader> open_read(const std::string& name,
                                                std::string& error) override;
  std::unique_ptr<Pool_Object_Writer> open_write(const std::string& name,
                                                 std::string& error) override;
  bool list(const std::string& prefix, std::vector<std::string>& names,
            std::string& error) override;

 private:
  S3_Pool_Store(const S3_Endpoint& endpoint, uint64_t part_size);
  S3_Endpoint endpoint_;
  uint64_t part_size_;
  S3_Client client_;
};
