#include "framework/client_io/client_io_ex.h"

Client_IO_Ex::Client_IO_Ex() = default;
// A writer still open is dropped unpublished.
Client_IO_Ex::~Client_IO_Ex() = default;

bool Client_IO_Ex::connect(const std::string& url, const Options& options, Rate_Clock& clock) {
  reader_.reset();
  writer_.reset();
  std::string error;
  store_ = make_pool_store(url, options, error);
  if (!store_) return fail(error);
  options_ = options;
  read_pace_.reset(new Rate_Limiter(options.rate_limits.src_rate_limits, clock));
  write_pace_.reset(new Rate_Limiter(options.rate_limits.dest_rate_limits, clock));
  last_error_.clear();
  return true;
}

bool Client_IO_Ex::open(const std::string& path, int mode, int flags, int perm) {
  if (!store_) return fail("not connected to a pool");
  if (reader_ || writer_) return fail("piece '" + path_ + "' is still open");
  if (flags != 0 || perm != 0) return fail("open flags and permissions must be 0");
  std::string error;
  path_ = path;
  cursor_ = 0;
  write_failed_ = false;
  if (mode == OPEN_READ) {
    reader_ = store_->open_read(path, error);
    return reader_ ? true : fail(error);
  }
  if (mode == OPEN_WRITE) {
    writer_ = store_->open_write(path, error);
    return writer_ ? true : fail(error);
  }
  return fail("unknown open mode " + std::to_string(mode));
}

ssize_t Client_IO_Ex::read(void* buf, size_t len) {
  const ssize_t n = pread(buf, len, cursor_);
  if (n > 0) cursor_ += static_cast<uint64_t>(n);
  return n;
}

ssize_t Client_IO_Ex::pread(void* buf, size_t len, uint64_t offset) {
  if (!reader_) return fail("no piece open for reading"), -1;
  std::string error;
  const ssize_t n = reader_->pread(buf, len, offset, error);
  if (n < 0) return fail(error), -1;
  bytes_read_ += static_cast<uint64_t>(n);
  read_pace_->throttle(static_cast<size_t>(n));
  return n;
}

ssize_t Client_IO_Ex::write(const void* buf, size_t len) {
  if (!writer_) return fail("no piece open for writing"), -1;
  if (write_failed_) return fail("piece '" + path_ + "' had a failed write"), -1;
  std::string error;
  if (!writer_->write(buf, len, error)) {
    write_failed_ = true;  // a piece with a hole in it must never be published
    return fail(error), -1;
  }
  bytes_written_ += len;
  write_pace_->throttle(len);
  return static_cast<ssize_t>(len);
}

int64_t Client_IO_Ex::size() {
  if (!reader_) return fail("no piece open for reading"), -1;
  return reader_->size();
}

bool Client_IO_Ex::close() {
  reader_.reset();
  if (!writer_) return true;
  std::unique_ptr<Pool_Object_Writer> w = std::move(writer_);
  if (write_failed_) return fail("piece '" + path_ + "' not stored: a write failed");
  std::string error;
  return w->commit(error) ? true : fail(error);
}

void Client_IO_Ex::abandon() {
  reader_.reset();
  writer_.reset();  // a writer destroyed before its commit leaves nothing
}

bool Client_IO_Ex::list(const std::string& prefix, std::vector<std::string>& names) {
  if (!store_) return fail("not connected to a pool");
  std::string error;
  return store_->list(prefix, names, error) ? true : fail(error);
}
