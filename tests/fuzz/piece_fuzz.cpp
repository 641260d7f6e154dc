// Piece bytes from a pool are outside input. Whatever they are, the reader either
// refuses them or hands out blocks that lie inside the image, never span a block
// boundary and add up to at most the image size. Seeds: real pieces (zstd, lzo, raw,
// and one sealed with the key below).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "framework/client_io/client_io_options.h"
#include "framework/client_io/image_block_reader.h"
#include "tests/fuzz/quiet_log.h"

namespace {

// A piece held in memory, read through the connection interface.
class Memory_IO : public Client_IO_Base {
 public:
  Memory_IO(const uint8_t* data, size_t size) : bytes_(reinterpret_cast<const char*>(data), size) {
    path_ = "fuzz";
    options_.cipher = ENCR_AES_256_GCM;
    options_.key = std::string(64, 'a');
    options_.iv = std::string(24, 'b');
  }
  bool open(const std::string&, int, int, int) override { return true; }
  ssize_t read(void* buf, size_t len) override {
    const ssize_t n = pread(buf, len, cursor_);
    cursor_ += static_cast<uint64_t>(n);
    return n;
  }
  ssize_t write(const void*, size_t) override { return -1; }
  ssize_t pread(void* buf, size_t len, uint64_t offset) override {
    if (offset >= bytes_.size()) return 0;
    const size_t n = std::min<uint64_t>(len, bytes_.size() - offset);
    std::memcpy(buf, bytes_.data() + offset, n);
    bytes_read_ += n;
    return static_cast<ssize_t>(n);
  }
  int64_t size() override { return static_cast<int64_t>(bytes_.size()); }
  bool close() override { return true; }
  void abandon() override {}
  const Options* connection_options() const override { return &options_; }

 private:
  std::string bytes_;
  uint64_t cursor_ = 0;
  Options options_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  au_fuzz::quiet_log();
  Memory_IO layout_io(data, size);
  Piece_Layout layout;
  const bool valid = Image_Block_Reader::read_layout(&layout_io, layout);

  Memory_IO io(data, size);
  const size_t block_size = 4096;
  uint64_t handed = 0;
  const bool ok = Image_Block_Reader::read_blocks_align(&io, [&](const void* p, size_t n, off_t off) {
    if (!valid || p == nullptr || n == 0 || off < 0) __builtin_trap();
    const uint64_t o = static_cast<uint64_t>(off);
    if (o + n > layout.header.image_size || o / block_size != (o + n - 1) / block_size) __builtin_trap();
    volatile char first = *static_cast<const char*>(p), last = static_cast<const char*>(p)[n - 1];
    (void)first;
    (void)last;
    handed += n;
    return true;
  }, block_size);
  if (ok && !valid) __builtin_trap();
  if (handed > layout.header.image_size) __builtin_trap();
  return 0;
}
