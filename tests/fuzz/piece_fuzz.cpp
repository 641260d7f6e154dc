// Piece bytes from a pool are outside input. Whatever they are, the readers either
// refuse them or hand out blocks that lie inside the image, never span a block boundary
// (null zeros: never more than 1 GiB) and add up to at most the image size; each record
// read at will is its layout's length. Each input is read with the key (sealed pieces)
// and without (unsealed ones). Seeds: real pieces, version 1 (zstd, lzo, raw, sealed)
// and version 2 (v2-zstd, v2-sealed, the latter sealed under the key below as 'fuzz').
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
  Memory_IO(const uint8_t* data, size_t size, bool keyed)
      : bytes_(reinterpret_cast<const char*>(data), size) {
    path_ = "fuzz";
    if (keyed) {
      options_.cipher = ENCR_AES_256_GCM;
      options_.key = std::string(64, 'a');
      options_.iv = std::string(24, 'b');
    }
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

void read_all(const uint8_t* data, size_t size, bool keyed) {
  Memory_IO layout_io(data, size, keyed);
  Piece_Layout layout;
  const bool valid = Image_Block_Reader::read_layout(&layout_io, layout);
  const uint64_t image_size = layout.header.image_size;

  // Zero-filled blocks cost a call per block: asked for only where that stays small.
  const bool null_zeros = image_size > (64u << 20);
  Memory_IO io(data, size, keyed);
  const size_t block_size = 4096;
  uint64_t handed = 0;
  const bool ok = Image_Block_Reader::read_blocks_align(&io, [&](const void* p, size_t n, off_t off) {
    if (!valid || n == 0 || off < 0 || (p == nullptr && !null_zeros)) __builtin_trap();
    const uint64_t o = static_cast<uint64_t>(off);
    if (o + n > image_size) __builtin_trap();
    if (p == nullptr) {
      if (n > (1u << 30)) __builtin_trap();
    } else {
      if (o / block_size != (o + n - 1) / block_size) __builtin_trap();
      volatile char first = *static_cast<const char*>(p), last = static_cast<const char*>(p)[n - 1];
      (void)first;
      (void)last;
    }
    handed += n;
    return true;
  }, block_size, null_zeros);
  if (ok && !valid) __builtin_trap();
  if (handed > image_size) __builtin_trap();

  Memory_IO records_io(data, size, keyed);
  Piece_Record_Reader records;
  if (records.open(records_io) != valid) __builtin_trap();
  if (!valid) return;
  for (size_t i = 0; i < records.layout().records.size(); ++i) {
    const piece::Record& r = records.layout().records[i];
    const void* plain = nullptr;
    if (!records.read_record(i, plain)) continue;
    if (r.flags != piece::RECORD_DATA || plain == nullptr) __builtin_trap();
    {
      volatile char last = static_cast<const char*>(plain)[r.length - 1];
      (void)last;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  au_fuzz::quiet_log();
  read_all(data, size, true);
  read_all(data, size, false);
  return 0;
}
