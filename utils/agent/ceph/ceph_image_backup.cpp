#include "utils/agent/ceph/ceph_image_backup.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/image_block_writer.h"
#include "framework/client_io/piece_format.h"
#include "framework/log/check.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_error.h"
#include "utils/agent/ceph/rbd_aio_window.h"
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

std::vector<Step> plan_steps(const Blocks& extents, uint64_t image_size, bool whole_image) {
  constexpr uint64_t unit = Ceph_Image_Backup::READ_SIZE;
  std::vector<Step> steps;
  uint64_t at = 0;
  for (const Block& e : extents) {
    const uint64_t end = std::min(e.end(), image_size);
    if (e.offset >= end) continue;
    if (whole_image && e.offset > at) steps.push_back({at, e.offset - at, false});
    for (uint64_t p = e.offset; p < end;) {
      const uint64_t n = std::min(end, (p / unit + 1) * unit) - p;
      steps.push_back({p, n, true});
      p += n;
    }
    at = end;
  }
  if (whole_image && at < image_size) steps.push_back({at, image_size - at, false});
  return steps;
}

const char* const OPEN_FAILED = "Failed to open Ceph snapshot '%s' by Ceph client '%s'.\n";

}  // namespace

// One piece being written: the steps in order, the reads in flight, the piece writer.
class Ceph_Image_Backup::Piece_Run {
 public:
  Piece_Run(Ceph_Image_Backup& owner, Client_IO_Base& io, uint64_t image_size, int power_of_2)
      : owner_(owner), io_(io), writer_(io), image_size_(image_size), power_of_2_(power_of_2) {}

  bool run(const std::vector<Step>& steps) {
    for (const Step& s : steps)
      if (s.read) total_ += s.length;
    const uint32_t block_size = static_cast<uint32_t>(
        std::min<uint64_t>(uint64_t{1} << power_of_2_, piece::MAX_BLOCK_SIZE));
    if (!writer_.begin(image_size_, block_size)) return false;
    const bool ok = rbd_aio_window_available() ? read_windowed(steps) : read_in_line(steps);
    return ok && writer_.finish();
  }

  void fill(Backup_Totals& t) const {
    t.image_size = image_size_;
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
                 uri().c_str(), io_.path().c_str(), done_, total_));
      return false;
    }
    return true;
  }

  bool read_failed(const Step& s, int64_t r) {
    const Ceph_Error e(static_cast<int>(r));
    ACE_ERROR((LM_ERROR, "Failed to read %Q bytes at offset %Q of Ceph snapshot '%s': code %d, "
                         "msg %s.\n",
               s.length, s.offset, uri().c_str(), e.code, e.text()));
    return false;
  }

  std::string uri() const {
    const Ceph_Snapshot& snap = owner_.snapshot_;
    return "ceph://" + snap.pool_name() + "/" + snap.image_name() + "@" + snap.snapshot_name();
  }

  Ceph_Image_Backup& owner_;
  Client_IO_Base& io_;
  Image_Block_Writer writer_;
  const uint64_t image_size_;
  const int power_of_2_;
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
  // The size through rbd_stat, which fails aloud: a size of 0 from a failed query would
  // make an empty piece that restores nothing.
  Snapshot_Stat stat;
  if (!snapshot_.stat(stat)) return false;
  const uint64_t size = stat.size;
  // The whole image reads the parent's extents too (a clone's data lives there); holes
  // are left to the zero stretches. Since a base, holes punched in between are changes.
  const bool whole_image = from_snap.empty();
  Blocks extents;
  if (!snapshot_.get_changed_blocks(from_snap, extents, power_of_2, Range(0, size),
                                    whole_image, cancel_callback_, true, false)) {
    return false;
  }
  if (!io.open(piece_path, Client_IO_Base::OPEN_WRITE, 0, 0)) {
    ACE_ERROR((LM_ERROR, "Failed to open piece '%s' for writing: %s\n", piece_path.c_str(),
               io.last_error().c_str()));
    return false;
  }
  Piece_Run run(*this, io, size, power_of_2);
  if (!run.run(plan_steps(extents, size, whole_image))) {
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
    run.fill(*totals);
  }
  return true;
}

}  // namespace ceph
