// A connection to one storage pool through which pieces are read and written.
//
// One piece is open at a time: open(path, mode, 0, 0), then sequential read()/write()
// or positioned pread(), then close(). Failures return false or -1 and leave their
// reason in last_error(); the connection itself logs nothing, so that the caller's one
// log line is the only one.
//
// Threads: a connection is used by one thread at a time and starts none of its own
// (an S3 pool's transfers move only inside its calls). Separate connections are
// independent. Destroying a connection with a piece open for writing drops the piece.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/base/api.h"
#include "framework/client_io/client_io_enums.h"

class AGENTUTIL_API Client_IO_Base {
 public:
  // How the agent reaches a pool's data: chosen by the framework, over the LAN, or
  // through the local agent's RPC listener.
  enum D2T_Access_Mode { D2T_Access_Auto = 0, D2T_Access_LAN_Base = 1, D2T_Access_RPC = 2 };

  // open() modes. A piece opened for writing is created (or replaced) under its name
  // only when close() succeeds; until then readers see the old piece or none.
  enum Open_Mode { OPEN_READ = 1, OPEN_WRITE = 2 };

  struct Options;  // client_io_options.h

  virtual ~Client_IO_Base() = default;

  // `flags` and `perm` are reserved and must be 0.
  virtual bool open(const std::string& path, int mode, int flags, int perm) = 0;
  // Bytes read (0 at the end of the piece) or -1.
  virtual ssize_t read(void* buf, size_t len) = 0;
  // `len` or -1: a short write is a failure.
  virtual ssize_t write(const void* buf, size_t len) = 0;
  // Bytes read at `offset` (fewer only at the end) or -1. Does not move the read cursor.
  virtual ssize_t pread(void* buf, size_t len, uint64_t offset) = 0;
  // The size of the piece open for reading, or -1.
  virtual int64_t size() = 0;
  // For a written piece, true means it is now stored and visible under its name.
  virtual bool close() = 0;
  // Drops the open piece: a written one is not stored (nothing is left under its name).
  virtual void abandon() = 0;

  // The options the connection was made with (keys for sealed pieces), if any.
  virtual const Options* connection_options() const { return nullptr; }

  const std::string& last_error() const { return last_error_; }
  // The piece open now (or last), as given to open().
  const std::string& path() const { return path_; }
  uint64_t bytes_read() const { return bytes_read_; }
  uint64_t bytes_written() const { return bytes_written_; }

 protected:
  // Sets last_error() and returns false, for one-line failure paths.
  bool fail(std::string text) {
    last_error_ = std::move(text);
    return false;
  }

  std::string last_error_;
  std::string path_;
  uint64_t bytes_read_ = 0;
  uint64_t bytes_written_ = 0;
};

// "auto", "lan_base", "rpc"; null outside the enumeration.
AGENTUTIL_API const char* d2t_access_mode_name(Client_IO_Base::D2T_Access_Mode m);
AGENTUTIL_API bool d2t_access_mode_from_name(const std::string& name,
                                             Client_IO_Base::D2T_Access_Mode& out);
