// Restores pieces into an RBD image: reads a piece's blocks from a storage pool and writes
// each at its offset.
//
//   ceph::Ceph_Image_Writer w(options, "ceph://rbd/vm-1", factory);
//   w.progress_callback() = [&](uint64_t n) { done += n; };
//   for (piece : full_then_incrementals)
//     if (!w.write(pool, piece, 4 << 20, nullptr)) break;
//
// Zero records are zeroed in the image (rbd_write_zeroes), so a restored image stays
// sparse; where the image held no data when the piece began (a new image), they cost
// nothing at all. Where librbd has its asynchronous calls, up to WINDOW blocks and
// MAX_BYTES_IN_FLIGHT bytes are in flight at once, all driven from the calling thread;
// progress then counts completed blocks only, and the first failure stops the piece once
// the blocks in flight have landed.
//
// The image is opened with librbd's cache off (set on the client, which keeps it), so that
// a block counts once the OSDs have it, and its exclusive lock is taken at open and held
// until close: a client that took the lock by writing hands it over, one that holds it
// explicitly (another restore) refuses the open.
//
// Ownership: the caller owns the writer; the factory is borrowed and must outlive it.
// Threads: one restore stream on one thread; the factory may be shared (it is
// thread-safe). Failure: one log line and false; blocks written before a failure stay
// written, and the caller restarts or abandons the restore.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "framework/base/api.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_options.h"

class Client_IO_Base;
class IO_Connection_Factory;

namespace ceph {

class Ceph_Client;

class AGENTUTIL_API Ceph_Image_Writer {
 public:
  // Told the bytes of each block written.
  using Progress_Callback = std::function<void(uint64_t bytes)>;
  using Sink = std::function<bool(const void* data, size_t length, off_t offset)>;

  // librados' no-cache advice: restored data is not read back soon.
  static constexpr int DEFAULT_WRITE_FLAG = 64;
  // Blocks and their bytes in flight at once on the asynchronous path: pieces of small
  // records (1 MiB stretches between holes, 4 KiB changes) need many requests to keep the
  // OSDs busy, 4 MiB blocks need few; the byte bound keeps librbd's copies at 128 MiB.
  static constexpr size_t WINDOW = 64;
  static constexpr uint64_t MAX_BYTES_IN_FLIGHT = 128u << 20;

  explicit Ceph_Image_Writer(IO_Connection_Factory& factory);
  // The same, then open(); success shows as image() being open.
  Ceph_Image_Writer(const Options& options, const std::string& image_uri,
                    IO_Connection_Factory& factory);

  bool open(const Options& options, const std::string& image_uri);
  // On a client the caller connected; the same failure line.
  bool open(Ceph_Client& client, const std::string& image_uri);
  // How open() opens: librbd's cache off on `client` (which keeps it), the image's
  // exclusive lock taken now and held until the image closes; the same lines. For any
  // restore into an RBD image.
  static bool open_for_restore(Ceph_Client& client, const std::string& image_uri,
                               Ceph_Image& image);

  int& write_flag() { return write_flag_; }
  Cancel_Callback& cancel_callback() { return cancel_callback_; }
  Progress_Callback& progress_callback() { return progress_callback_; }
  Ceph_Image& image() { return image_; }

  // Restores the piece `piece_path` of the pool `pool_id` (a connection from the factory,
  // default compression) in blocks of at most `block_size` bytes (0: the piece's own).
  // `bytes_read`, when given, receives the piece bytes read.
  bool write(const std::string& pool_id, const std::string& piece_path, uint64_t block_size,
             uint64_t* bytes_read);
  // The same on a connection the caller made (a pool reached by its URL).
  bool write_from(Client_IO_Base& io, const std::string& piece_path, uint64_t block_size,
                  uint64_t* bytes_read);

  // The synchronous per-block sink: pwrite, then progress, then the cancel check.
  Sink make_writer();
  // Writes one block (zeroes the range when `data` is null); bytes or a negative errno.
  ssize_t pwrite(const void* data, size_t length, off_t offset);

 private:
  // True when [offset, offset + length) may hold data: zeroing it is then needed.
  bool may_hold_data(uint64_t offset, uint64_t length) const;
  bool restore_windowed(Client_IO_Base& io, uint64_t block_size);
  void log_write_failure(size_t length, off_t offset, ssize_t r);

  int write_flag_ = DEFAULT_WRITE_FLAG;
  IO_Connection_Factory& io_factory_;
  Cancel_Callback cancel_callback_;
  Progress_Callback progress_callback_;
  Ceph_Image image_;
  // While a piece is written: the image's extents holding data when it began (its
  // parent's too), or unknown (then every zero record is zeroed).
  bool allocation_known_ = false;
  Blocks allocated_;
};

}  // namespace ceph
