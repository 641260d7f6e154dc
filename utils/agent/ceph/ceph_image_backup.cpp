#include "utils/agent/ceph/ceph_image_backup.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <vector>

#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/image_block_reader.h"
#include "framework/client_io/image_block_writer.h"
#include "framework/client_io/piece_format.h"
#include "framework/log/check.h"
#include "utils/agent/ceph/backup_extents.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_error.h"
#include "utils/agent/ceph/rbd_aio_window.h"
#include "utils/agent/ceph/snapshot_identity.h"
#include "utils/agent/io_connection_factory.h"

namespace ceph {

namespace {

// One step of a piece, in image order: a read of at most READ_SIZE bytes that never crosses
// a READ_SIZE boundary (so requests stay inside RADOS objects), or a stretch the piece
// stores as zeros without reading it.
struct Step {
  uint64_t offset;
  uint64_t length;
  bool read;
};

// Gaps between the extents at or past `zeros_from` become zero steps: all of them for a
// full piece, the grown part of the image for an incremental.
std::vector<Step> plan_steps(const Blocks& extents, uint64_t image_size, uint64_t zeros_from) {
  constexpr uint64_t unit = Ceph_Image_Backup::READ_SIZE;
  std::vector<Step> steps;
  auto zeros = [&](uint64_t from, uint64_t to) {
    from = std::max(from, zeros_from);
    if (from < to) steps.push_back({from, to - from, false});
  };
  uint64_t at = 0;
  for (const Block& e : extents) {
    const uint64_t end = std::min(e.end(), image_size);
    if (e.offset >= end) continue;
    zeros(at, e.offset);
    for (uint64_t p = e.offset; p < end;) {
      const uint64_t n = std::min(end, (p / unit + 1) * unit) - p;
      steps.push_back({p, n, true});
      p += n;
    }
    at = end;
  }
  zeros(at, image_size);
  return steps;
}

const char* const OPEN_FAILED = "Failed to open Ceph snapshot '%s' by Ceph client '%s'.\n";

}  // namespace

// What an incremental builds on: the base snapshot, and the base piece when one was given.
struct Ceph_Image_Backup::Base {
  Snapshot_Info snapshot;
  piece::Piece_Id piece_id{};
  std::string piece_name;
};

// One piece being written: the steps in order, the reads in flight, the piece writer.
class Ceph_Image_Backup::Piece_Run {
 public:
  Piece_Run(Ceph_Image_Backup& owner, Client_IO_Base& io, const piece::Identity& identity)
      : owner_(owner), io_(io), writer_(io), identity_(identity) {}

  bool run(const std::vector<Step>& steps) {
    for (const Step& s : steps)
      if (s.read) total_ += s.length;
    const uint32_t block_size =
        static_cast<uint32_t>(std::min<uint64_t>(identity_.chunk_size, piece::MAX_BLOCK_SIZE));
    if (!writer_.begin(identity_, block_size)) return false;
    const bool ok = rbd_aio_window_available() ? read_windowed(steps) : read_in_line(steps);
    return ok && writer_.finish();
  }

  void fill(Backup_Totals& t) const {
    t.image_size = identity_.image_size;
    t.bytes_read = done_;
    t.zero_bytes = writer_.zero_bytes();
    t.records = writer_.records();
    t.piece_bytes = writer_.piece_bytes();
  }

 private:
  bool read_in_line(const std::vector<Step>& steps) {
    std::unique_ptr<char[]> buffer(new char[READ_SIZE]);
    for (const Step& s : steps) {
      if (!s.read) {
        if (!writer_.append_zeros(s.offset, s.length)) return false;
        continue;
      }
      const int r = owner_.snapshot_.read(s.offset, s.length, buffer.get(), 0);
      if (!store(s, r, buffer.get())) return false;
    }
    return true;
  }

  // Reads are queued ahead while the window has room and taken back in order; a stretch
  // of zeros is stored when its turn comes between them.
  bool read_windowed(const std::vector<Step>& steps) {
    Rbd_Aio_Window window(owner_.snapshot_.context(), WINDOW, WINDOW * READ_SIZE);
    size_t next = 0;
    for (const Step& s : steps) {
      for (; next < steps.size() && !window.full(steps[next].length); ++next) {
        if (!steps[next].read) continue;
        const int r = window.submit_read(steps[next].offset, steps[next].length, 0);
        if (r < 0) return read_failed(steps[next], r);
      }
      if (!s.read) {
        if (!writer_.append_zeros(s.offset, s.length)) return false;
        continue;
      }
      const Rbd_Aio_Window::Request* r = window.complete_oldest();
      if (!store(s, r->result, r->data())) return false;
    }
    return true;
  }

  bool store(const Step& s, int64_t result, const char* data) {
    if (result != static_cast<int64_t>(s.length)) return read_failed(s, result < 0 ? result : -EIO);
    if (!writer_.append(s.offset, data, s.length)) return false;
    done_ += s.length;
    if (owner_.progress_callback_) owner_.progress_callback_(done_, total_);
    if (owner_.cancel_callback_ && owner_.cancel_callback_()) {
      ACE_ERROR((LM_ERROR, "Cancelled backup of '%s' into piece '%s' after %Q of %Q bytes.\n",
                 owner_.uri().c_str(), io_.path().c_str(), done_, total_));
      return false;
    }
    return true;
  }

  bool read_failed(const Step& s, int64_t r) {
    const Ceph_Error e(static_cast<int>(r));
    ACE_ERROR((LM_ERROR, "Failed to read %Q bytes at offset %Q of Ceph snapshot '%s': code %d, "
                         "msg %s.\n",
               s.length, s.offset, owner_.uri().c_str(), e.code, e.text()));
    return false;
  }

  Ceph_Image_Backup& owner_;
  Client_IO_Base& io_;
  Image_Block_Writer writer_;
  const piece::Identity& identity_;
  uint64_t total_ = 0;
  uint64_t done_ = 0;
};

Ceph_Image_Backup::Ceph_Image_Backup(IO_Connection_Factory& factory) : io_factory_(factory) {}

bool Ceph_Image_Backup::open(const Options& options, const std::string& snapshot_uri) {
  return open_on_new_client(options, snapshot_uri, OPEN_FAILED,
                            [&](Ceph_Client& client) { return open(client, snapshot_uri); });
}

bool Ceph_Image_Backup::open(Ceph_Client& client, const std::string& snapshot_uri) {
  if (client.open_snapshot(snapshot_uri, snapshot_, true)) return true;
  ACE_ERROR((LM_ERROR, OPEN_FAILED, snapshot_uri.c_str(), client.client_id().c_str()));
  return false;
}

bool Ceph_Image_Backup::backup(const std::string& pool_id, const std::string& piece_path,
                               const std::string& from_snap, int power_of_2,
                               Backup_Totals* totals) {
  if (AU_IS_EMPTY(pool_id)) return false;
  if (AU_IS_EMPTY(piece_path)) return false;
  if (AU_IS_FALSE(snapshot_)) return false;
  std::unique_ptr<Client_IO_Ex> io = io_factory_(pool_id);
  if (AU_IS_NULL(io)) return false;
  return backup_to(*io, piece_path, from_snap, power_of_2, totals);
}

bool Ceph_Image_Backup::backup_to(Client_IO_Base& io, const std::string& piece_path,
                                  const std::string& from_snap, int power_of_2,
                                  Backup_Totals* totals) {
  if (AU_IS_EMPTY(piece_path)) return false;
  if (AU_IS_FALSE(snapshot_)) return false;
  if (from_snap.empty()) return write_piece(io, piece_path, nullptr, power_of_2, totals);
  Base base;
  bool listed = false;
  if (!find_snapshot(snapshot_, from_snap, base.snapshot, listed)) {
    if (listed)
      ACE_ERROR((LM_ERROR, "Failed to back up '%s': it has no base snapshot '%s'.\n",
                 uri().c_str(), from_snap.c_str()));
    return false;
  }
  return write_piece(io, piece_path, &base, power_of_2, totals);
}

bool Ceph_Image_Backup::backup_after(Client_IO_Base& io, const std::string& piece_path,
                                     const std::string& base_piece, int power_of_2,
                                     Backup_Totals* totals) {
  if (AU_IS_EMPTY(piece_path)) return false;
  if (AU_IS_EMPTY(base_piece)) return false;
  if (AU_IS_FALSE(snapshot_)) return false;
  if (!io.open(base_piece, Client_IO_Base::OPEN_READ, 0, 0)) {
    ACE_ERROR((LM_ERROR, "Failed to open piece '%s' for reading: %s\n", base_piece.c_str(),
               io.last_error().c_str()));
    return false;
  }
  Piece_Layout layout;
  const bool read = Image_Block_Reader::read_layout(&io, layout);
  io.close();
  if (!read) return false;  // the reader named the piece and why
  piece::Identity own;
  if (!snapshot_identity(snapshot_, own)) return false;
  const piece::Identity& of_base = layout.identity;
  if (!of_base.same_source(own)) {
    ACE_ERROR((LM_ERROR, "Failed to back up '%s' after piece '%s': that piece holds no "
                         "snapshot of this image.\n",
               uri().c_str(), base_piece.c_str()));
    return false;
  }
  Base base;
  bool listed = false;
  const bool found = find_snapshot(snapshot_, of_base.snapshot_name, base.snapshot, listed);
  if (!listed) return false;
  if (!found || std::to_string(base.snapshot.id) != of_base.snapshot_id) {
    ACE_ERROR((LM_ERROR, "Failed to back up '%s' after piece '%s': its snapshot %s ('%s') is "
                         "gone from the image.\n",
               uri().c_str(), base_piece.c_str(), of_base.snapshot_id.c_str(),
               of_base.snapshot_name.c_str()));
    return false;
  }
  base.piece_id = of_base.piece_id;
  base.piece_name = base_piece;
  return write_piece(io, piece_path, &base, power_of_2, totals);
}

bool Ceph_Image_Backup::write_piece(Client_IO_Base& io, const std::string& piece_path,
                                    const Base* base, int power_of_2, Backup_Totals* totals) {
  // The size from librbd's snapshot list, which fails aloud: a size of 0 from a failed
  // query would make an empty piece that restores nothing.
  piece::Identity identity;
  if (!snapshot_identity(snapshot_, identity)) return false;
  Backup_Scan scan;
  scan.size = identity.image_size;
  scan.power_of_2 = power_of_2;
  scan.cancel = cancel_callback_;
  uint64_t zeros_from = 0;  // a full piece: every gap is zeros
  if (base != nullptr) {
    if (base->snapshot.id >= std::strtoull(identity.snapshot_id.c_str(), nullptr, 10)) {
      ACE_ERROR((LM_ERROR, "Failed to back up '%s': its base snapshot '%s' is not older.\n",
                 uri().c_str(), base->snapshot.name.c_str()));
      return false;
    }
    identity.base_piece_id = base->piece_id;
    identity.base_piece_name = base->piece_name;
    identity.base_snapshot_id = std::to_string(base->snapshot.id);
    identity.base_snapshot_name = base->snapshot.name;
    identity.base_image_size = base->snapshot.size;
    scan.from_snap = base->snapshot.name;
    // A grown image: the new part is covered whole, as zeros where nothing was written.
    zeros_from = std::min(base->snapshot.size, identity.image_size);
  }
  Blocks extents;
  bool by_object_map = false;
  if (!backup_extents(snapshot_.context(), scan, extents, &by_object_map)) return false;
  identity.chunk_size = uint32_t{1} << power_of_2;
  identity.created = static_cast<uint64_t>(std::time(nullptr));

  if (!io.open(piece_path, Client_IO_Base::OPEN_WRITE, 0, 0)) {
    ACE_ERROR((LM_ERROR, "Failed to open piece '%s' for writing: %s\n", piece_path.c_str(),
               io.last_error().c_str()));
    return false;
  }
  Piece_Run run(*this, io, identity);
  if (!run.run(plan_steps(extents, identity.image_size, zeros_from))) {
    io.abandon();
    return false;
  }
  if (!io.close()) {
    ACE_ERROR((LM_ERROR, "Failed to store piece '%s': %s\n", piece_path.c_str(),
               io.last_error().c_str()));
    return false;
  }
  if (totals != nullptr) {
    *totals = Backup_Totals();
    totals->extents = extents.size();
    totals->by_object_map = by_object_map;
    run.fill(*totals);
  }
  return true;
}

std::string Ceph_Image_Backup::uri() const {
  return "ceph://" + snapshot_.pool_name() + "/" + snapshot_.image_name() + "@" +
         snapshot_.snapshot_name();
}

}  // namespace ceph
