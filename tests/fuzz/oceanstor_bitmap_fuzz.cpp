// Changed-block bitmaps arrive as hex text. The input is read both as that text and as
// the raw bitmap bytes; the extents found must cover exactly the set bits, in order,
// with gaps between them, shifted by the starting unit. Text folded in two pieces, as
// segments arrive, must give what the whole text gives.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/base/hex_string.h"
#include "tests/fuzz/quiet_log.h"
#include "utils/agent/oceanstor/change_blocks_internal.h"
#include "utils/agent/oceanstor/oceanstor_client.h"

namespace {

using Bitmap_Bytes = std::basic_string<unsigned char>;

bool bit_set(const Bitmap_Bytes& bitmap, uint64_t i) { return (bitmap[i / 8] >> (i % 8)) & 1; }

void check_extents(const Bitmap_Bytes& bitmap, unsigned long start) {
  std::vector<Block> blocks{Block(7, 7)};  // a caller's entry, kept in front
  const unsigned long total = oceanstor::parse_change_blocks(bitmap, start, blocks);
  if (blocks.empty() || !(blocks[0] == Block(7, 7))) __builtin_trap();

  uint64_t next_unit = 0;  // relative to start: the first unit not yet accounted for
  unsigned long counted = 0;
  for (std::size_t b = 1; b < blocks.size(); ++b) {
    const Block& block = blocks[b];
    if (block.length == 0 || block.offset < start) __builtin_trap();
    const uint64_t first = block.offset - start;
    if (first < next_unit || (b > 1 && first == next_unit)) __builtin_trap();  // sorted, apart
    if (first + block.length > 8 * uint64_t(bitmap.size())) __builtin_trap();
    for (uint64_t i = next_unit; i < first; ++i)
      if (bit_set(bitmap, i)) __builtin_trap();
    for (uint64_t i = first; i < first + block.length; ++i)
      if (!bit_set(bitmap, i)) __builtin_trap();
    next_unit = first + block.length;
    counted += block.length;
  }
  for (uint64_t i = next_unit; i < 8 * uint64_t(bitmap.size()); ++i)
    if (bit_set(bitmap, i)) __builtin_trap();
  if (counted != total) __builtin_trap();
}

void check_pieces(const std::string& text, const Bitmap_Bytes& decoded, std::size_t cut) {
  std::vector<Block> whole, pieces;
  oceanstor::parse_change_blocks(decoded, 0, whole);
  oceanstor::Change_Block_Folder folder(0, pieces);
  cut = (2 * cut) % (text.size() + 1) & ~std::size_t(1);  // between two bytes' digits
  if (!folder.add_hex(text.substr(0, cut)) || !folder.add_hex(text.substr(cut))) __builtin_trap();
  folder.finish();
  if (whole != pieces) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  au_fuzz::quiet_log();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const Bitmap_Bytes raw(data, size);
  const unsigned long start = size > 0 ? uint64_t(data[0]) << 20 : 0;
  check_extents(raw, 0);
  check_extents(raw, start);

  std::vector<unsigned char> decoded;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (Hex_String(text).get_bytes(decoded)) {
    const Bitmap_Bytes bytes(decoded.begin(), decoded.end());
    check_extents(bytes, 0);
    check_pieces(text, bytes, size > 0 ? data[0] : 0);
  }
  return 0;
}
