// Runs of set bits in an array bitmap, as chunk extents.
#include <ace/Log_Msg.h>

#include <cstring>

#include "framework/base/hex_string.h"
#include "utils/agent/oceanstor/change_blocks_internal.h"
#include "utils/agent/oceanstor/oceanstor_client.h"

namespace oceanstor {

namespace {

// Chunk i is bit i % 8 of byte i / 8, least significant first: read little-endian, eight
// bytes make one word with chunk 8k + i at bit 8k + i.
uint64_t load_word(const unsigned char* bytes, size_t count) {
  uint64_t word = 0;
  for (size_t k = 0; k < count; ++k) word |= static_cast<uint64_t>(bytes[k]) << (8 * k);
  return word;
}

// Index of the lowest set bit of `mask`, which is cleared.
unsigned next_bit(uint64_t& mask) {
  const unsigned at = static_cast<unsigned>(__builtin_ctzll(mask));
  mask &= mask - 1;
  return at;
}

}  // namespace

void Change_Block_Folder::add(const unsigned char* bytes, size_t count) {
  if (count == 0) return;
  if (carried_ != 0) {
    const size_t taken = count < 8 - carried_ ? count : 8 - carried_;
    std::memcpy(carry_ + carried_, bytes, taken);
    carried_ += taken;
    bytes += taken;
    count -= taken;
    if (carried_ < 8) return;
    add_word(load_word(carry_, 8));
    carried_ = 0;
  }
  const size_t whole_words = count / 8;
  for (size_t w = 0; w < whole_words; ++w) add_word(load_word(bytes + 8 * w, 8));
  carried_ = count % 8;
  std::memcpy(carry_, bytes + 8 * whole_words, carried_);
}

bool Change_Block_Folder::add_hex(const std::string& text) {
  if (!hex_decode(text, decoded_)) return false;
  add(decoded_.data(), decoded_.size());
  return true;
}

// Walks the bitmap 64 chunks at a time. A word of zeros outside a run, or of ones inside
// one, changes nothing; in a mixed word the run starts and ends are bit masks, taken in
// pairs with count-trailing-zeros, so each extent costs a few instructions.
void Change_Block_Folder::add_word(uint64_t bits) {
  const uint64_t at = at_;
  at_ += 64;
  if (bits == (in_run_ ? ~0ULL : 0ULL)) return;
  const uint64_t previous_set = bits << 1 | (in_run_ ? 1 : 0);  // bit i: chunk i - 1 is set
  uint64_t starts = bits & ~previous_set;
  uint64_t ends = ~bits & previous_set;
  if (in_run_) {  // the word is mixed, so the open run ends in it
    append(run_start_, at + next_bit(ends) - run_start_);
    in_run_ = false;
  }
  while (starts != 0) {
    const uint64_t first = at + next_bit(starts);
    if (ends == 0) {  // runs on into the next word
      run_start_ = first;
      in_run_ = true;
      return;
    }
    append(first, at + next_bit(ends) - first);
  }
}

void Change_Block_Folder::append(uint64_t first, uint64_t length) {
  blocks_.emplace_back(start_ + first, length);
  total_ += length;
}

unsigned long Change_Block_Folder::finish() {
  // The last word may be short: its missing high bytes read as clear chunks, which end
  // an open run exactly where the bitmap ends.
  const uint64_t bit_count = at_ + 8 * carried_;
  if (carried_ != 0) add_word(load_word(carry_, carried_));
  carried_ = 0;
  if (in_run_) append(run_start_, bit_count - run_start_);
  in_run_ = false;
  ACE_DEBUG((LM_INFO, ACE_TEXT("Total trunk blocks: %B.\n"), static_cast<size_t>(total_)));
  return total_;
}

unsigned long parse_change_blocks(const std::basic_string<unsigned char>& bitmap, unsigned long start,
                                  std::vector<Block>& blocks) {
  Change_Block_Folder folder(start, blocks);
  folder.add(bitmap.data(), bitmap.size());
  return folder.finish();
}

}  // namespace oceanstor
