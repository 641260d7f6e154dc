#include "utils/agent/ceph/ceph_image_writer.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "framework/base/posix_error.h"
#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/image_block_reader.h"
#include "framework/log/check.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_error.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/rbd_aio_window.h"
#include "utils/agent/ceph/rbd_handle.h"
#include "utils/agent/io_connection_factory.h"

namespace ceph {

Ceph_Image_Writer::Ceph_Image_Writer(IO_Connection_Factory& factory) : io_factory_(factory) {}

Ceph_Image_Writer::Ceph_Image_Writer(const Options& options, const std::string& image_uri,
                                     IO_Connection_Factory& factory)
    : io_factory_(factory) {
  open(options, image_uri);
}

namespace {
const char* const OPEN_FAILED = "Failed to open Ceph Image '%s' by Ceph client '%s'.\n";
}  // namespace

bool Ceph_Image_Writer::open(const Options& options, const std::string& image_uri) {
  return open_on_new_client(options, image_uri, OPEN_FAILED,
                            [&](Ceph_Client& client) { return open(client, image_uri); });
}

bool Ceph_Image_Writer::open(Ceph_Client& client, const std::string& image_uri) {
  return open_for_restore(client, image_uri, image_);
}

bool Ceph_Image_Writer::open_for_restore(Ceph_Client& client, const std::string& image_uri,
                                         Ceph_Image& image) {
  // librbd's write-around cache, on once an image has been flushed, completes writes before
  // the OSDs have them, and a flush with nothing left in flight does not report one that
  // failed meanwhile: a restore could end true without its blocks. Set on the client, as
  // librbd reads it at open.
  client.set_configs({{"rbd_cache", json_spirit::Value("false")}}, true);
  if (client.open_image(image_uri, image, false)) {
    // Locked now, not at the first write: a cluster that fills up in between leaves that
    // write waiting for ever on the lock (librbd retries its watch without a time-out).
    const int r = rbd_handle::lock_exclusive(image.context());
    if (r == 0) return true;
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to lock Ceph image '%s' for writing: code %d, msg %s.\n",
               image_uri.c_str(), e.code, e.text()));
    image.close_image();
  }
  ACE_ERROR((LM_ERROR, OPEN_FAILED, image_uri.c_str(), client.client_id().c_str()));
  return false;
}

bool Ceph_Image_Writer::write(const std::string& pool_id, const std::string& piece_path,
                              uint64_t block_size, uint64_t* bytes_read) {
  if (AU_IS_EMPTY(pool_id)) return false;
  if (AU_IS_EMPTY(piece_path)) return false;
  if (AU_IS_FALSE(image_)) return false;
  std::unique_ptr<Client_IO_Ex> io = io_factory_(pool_id);
  if (AU_IS_NULL(io)) return false;
  return write_from(*io, piece_path, block_size, bytes_read);
}

bool Ceph_Image_Writer::write_from(Client_IO_Base& io, const std::string& piece_path,
                                   uint64_t block_size, uint64_t* bytes_read) {
  if (AU_IS_EMPTY(piece_path)) return false;
  if (AU_IS_FALSE(image_)) return false;
  if (!io.open(piece_path, Client_IO_Base::OPEN_READ, 0, 0)) {
    ACE_ERROR((LM_ERROR, "Failed to open piece '%s' for reading: %s\n", piece_path.c_str(),
               io.last_error().c_str()));
    return false;
  }
  allocated_.clear();
  allocation_known_ = rbd_handle::allocated_extents(image_.context(), allocated_);
  // Flags need rbd_aio_write2; without it the synchronous path reports the missing symbol.
  const bool windowed =
      rbd_aio_window_available() && (write_flag_ == 0 || rbd_aio_write2 != nullptr);
  const bool ok = windowed ? restore_windowed(io, block_size)
                           : Image_Block_Reader::read_blocks_align(&io, make_writer(),
                                                                   block_size, true);
  io.close();
  allocation_known_ = false;
  // Blocks that librbd holds in its cache must reach the cluster before we say "restored".
  if (!ok) return false;
  if (!rbd_handle::flush(image_.context())) {
    ACE_ERROR((LM_ERROR, "Failed to flush Ceph image '%s' after piece '%s'.\n",
               image_.uri().c_str(), piece_path.c_str()));
    return false;
  }
  if (bytes_read != nullptr) *bytes_read = io.bytes_read();
  return true;
}

Ceph_Image_Writer::Sink Ceph_Image_Writer::make_writer() {
  return [this](const void* data, size_t length, off_t offset) {
    const ssize_t n = pwrite(data, length, offset);
    if (n < static_cast<ssize_t>(length)) return false;
    if (progress_callback_) progress_callback_(static_cast<uint64_t>(n));
    return !(cancel_callback_ && cancel_callback_());
  };
}

ssize_t Ceph_Image_Writer::pwrite(const void* data, size_t length, off_t offset) {
  if (data == nullptr && !may_hold_data(offset, length)) return static_cast<ssize_t>(length);
  const ssize_t r =
      data != nullptr
          ? image_.write(offset, length, static_cast<const char*>(data), write_flag_)
          : rbd_handle::zero_range(image_.context(), offset, length, write_flag_);
  if (r < 0) log_write_failure(length, offset, r);
  return r;
}

bool Ceph_Image_Writer::may_hold_data(uint64_t offset, uint64_t length) const {
  if (!allocation_known_) return true;
  // The first extent ending after `offset` decides: sorted, merged, not overlapping.
  const auto e = std::upper_bound(allocated_.begin(), allocated_.end(), offset,
                                  [](uint64_t at, const Block& b) { return at < b.end(); });
  return e != allocated_.end() && e->offset < offset + length;
}

void Ceph_Image_Writer::log_write_failure(size_t length, off_t offset, ssize_t r) {
  const int code = static_cast<int>(-r);
  ACE_ERROR((LM_ERROR, "Failed to write %Q bytes to offset %Q to Ceph image '%s', errno=%d, %s\n",
             static_cast<uint64_t>(length), static_cast<uint64_t>(offset),
             image_.uri().c_str(), code, POSIX_Error(code).c_str()));
}

// The reader's sink queues each block; the window's oldest completion is taken whenever
// the window is full, and all of them once the piece ends or stops. A failed or short
// block stops the piece after the blocks in flight have landed; only its line is logged.
bool Ceph_Image_Writer::restore_windowed(Client_IO_Base& io, uint64_t block_size) {
  Rbd_Aio_Window window(image_.context(), WINDOW, MAX_BYTES_IN_FLIGHT,
                        rbd_handle::writes_are_copied(image_.context()));
  // librbd's asynchronous writes drop bytes past the image end without saying so; such a
  // block goes through the synchronous sink, whose short count stops the piece.
  const uint64_t image_size = image_.size();
  const Sink in_line = make_writer();
  bool failed = false;
  auto land_oldest = [&] {
    const Rbd_Aio_Window::Request* r = window.complete_oldest();
    if (failed) return;
    if (r->result < 0) log_write_failure(r->length, r->offset, r->result);
    if (r->result < static_cast<int64_t>(r->length)) {
      failed = true;
      return;
    }
    if (progress_callback_) progress_callback_(r->length);
  };
  auto sink = [&](const void* data, size_t length, off_t offset) {
    while ((window.full(data != nullptr ? length : 0) || offset + length > image_size) && !window.empty() && !failed)
      land_oldest();
    if (failed) return false;
    if (offset + length > image_size) return in_line(data, length, offset);
    if (data == nullptr && !may_hold_data(offset, length)) {  // nothing there to zero
      if (progress_callback_) progress_callback_(length);
      return !(cancel_callback_ && cancel_callback_());
    }
    int64_t r = data != nullptr ? window.submit_write(offset, data, length, write_flag_)
                                : window.submit_zeroes(offset, length, write_flag_);
    if (r == -EOPNOTSUPP && data == nullptr) {  // no asynchronous zeroing: in line
      r = rbd_handle::zero_range(image_.context(), offset, length, write_flag_);
      if (r >= 0 && progress_callback_) progress_callback_(length);
    }
    if (r < 0) {
      log_write_failure(length, offset, r);
      failed = true;
      return false;
    }
    return !(cancel_callback_ && cancel_callback_());
  };
  const bool read_ok = Image_Block_Reader::read_blocks_align(&io, sink, block_size, true);
  while (!window.empty()) land_oldest();
  return read_ok && !failed;
}

}  // namespace ceph
