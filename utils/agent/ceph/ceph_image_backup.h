// Backs up an RBD snapshot into one piece of a storage pool: the piece an agent would
// otherwise write itself, and the one Ceph_Image_Writer or a chain restore restores.
//
//   ceph::Ceph_Image_Backup b(factory);
//   b.open(options, "ceph://rbd/vm-1@daily-2");
//   b.backup(pool, "vm-1/daily-2", "daily-1", 16, &totals);   // changes since daily-1
//   b.backup(pool, "vm-1/full", "", 16, &totals);              // the whole image
//   b.backup_after(io, "vm-1/daily-3", "vm-1/daily-2", 16, &totals);  // since that piece
//
// With a base the piece holds every byte changed since it, on a grid of 1 << power_of_2
// bytes (backup_extents.h), and all of [base size, size) when the image grew; without
// one it covers the whole image: the extents that may hold data (the parent's too, for a
// clone) as data and the rest as zero records, so that restoring it over any image gives
// the snapshot back. Any stretch that reads back as zeros is stored as a zero record (no
// bytes), so a restore keeps the image sparse. Every piece is version 2 and names its
// source and base (snapshot_identity.h): cluster fsid, pool, image name and id, snapshot
// id and name, sizes, and the base piece when the backup was given one.
//
// Reads go through librbd's asynchronous calls in a window of WINDOW requests when it has
// them (else one at a time), all from the calling thread; the piece is written on that
// thread as the reads complete in order.
//
// Ownership: the caller owns the backup object; the factory is borrowed and must outlive
// it. Threads: one backup stream on one thread. Failure: one log line and false, and the
// piece is dropped: nothing is left under its name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "framework/base/api.h"
#include "utils/agent/block.h"
#include "utils/agent/ceph/ceph_options.h"
#include "utils/agent/ceph/ceph_snapshot.h"

class Client_IO_Base;
class IO_Connection_Factory;

namespace ceph {

class Ceph_Client;

struct AGENTUTIL_API Backup_Totals {
  uint64_t image_size = 0;
  uint64_t extents = 0;      // extents taken (changed, or allocated)
  uint64_t bytes_read = 0;   // image bytes read
  uint64_t zero_bytes = 0;   // image bytes stored as zero records (holes and read zeros)
  uint64_t records = 0;      // records of the piece
  uint64_t piece_bytes = 0;  // bytes of the piece
  bool by_object_map = false;  // the object map named the objects to scan
};

class AGENTUTIL_API Ceph_Image_Backup {
 public:
  // (bytes read so far, bytes to read), after each read.
  using Progress_Callback = std::function<void(uint64_t done, uint64_t total)>;

  static constexpr size_t WINDOW = 16;
  static constexpr uint64_t READ_SIZE = 4u << 20;

  explicit Ceph_Image_Backup(IO_Connection_Factory& factory);

  // Opens "ceph://pool/image@snap" read-only; the same configuration rules and messages as
  // Ceph_Image_Writer::open.
  bool open(const Options& options, const std::string& snapshot_uri);
  // On a client the caller connected; the same failure line.
  bool open(Ceph_Client& client, const std::string& snapshot_uri);

  Cancel_Callback& cancel_callback() { return cancel_callback_; }
  Progress_Callback& progress_callback() { return progress_callback_; }
  Ceph_Snapshot& snapshot() { return snapshot_; }

  // Writes the piece `piece_path` to the pool `pool_id` (a connection from the factory).
  // `from_snap` empty: the whole image. `totals`, when given, is filled on success.
  bool backup(const std::string& pool_id, const std::string& piece_path,
              const std::string& from_snap, int power_of_2, Backup_Totals* totals);
  // The same on a connection the caller made (a pool reached by its URL).
  bool backup_to(Client_IO_Base& io, const std::string& piece_path,
                 const std::string& from_snap, int power_of_2, Backup_Totals* totals);
  // Changes since the snapshot that the piece `base_piece` of the same pool holds; the new
  // piece names it as its base, so a chain can be followed back from its newest piece.
  // The base's layout is read through `io` first. It must be a piece of this image whose
  // snapshot still exists under the same id and is older than this one.
  bool backup_after(Client_IO_Base& io, const std::string& piece_path,
                    const std::string& base_piece, int power_of_2, Backup_Totals* totals);

 private:
  class Piece_Run;
  struct Base;

  bool write_piece(Client_IO_Base& io, const std::string& piece_path, const Base* base,
                   int power_of_2, Backup_Totals* totals);
  std::string uri() const;

  IO_Connection_Factory& io_factory_;
  Cancel_Callback cancel_callback_;
  Progress_Callback progress_callback_;
  Ceph_Snapshot snapshot_;
};

}  // namespace ceph
