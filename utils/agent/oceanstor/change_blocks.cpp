// Runs of set bits in an array bitmap, as chunk extents.
#include <ace/Log_Msg.h>

#include <cstdint>

#include "utils/agent/oceanstor/oceanstor_client.h"

namespace oceanstor {

namespace {

// Walks the bitmap 64 chunks at a time. A word of zeros outside a run, or of ones inside
// one, changes nothing; in a mixed word the run starts and ends are bit masks, taken in
// pairs with count-trailing-zeros, so each extent costs a few instructions.
class Run_Collector {
 public:
  Run_Collector(unsigned long start, std::vector<Block>& blocks) : start_(start), blocks_(blocks) {}

  // `bits` holds chunks `at` .. `at` + 63, chunk `at` in the least-significant bit.
  void add_word(uint64_t bits, uint64_t at) {
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

  // Ends a run still open at the end of the bitmap.
  unsigned long finish(uint64_t bit_count) {
    if (in_run_) append(run_start_, bit_count - run_start_);
    in_run_ = false;
    return total_;
  }

 private:
  // Index of the lowest set bit of `mask`, which is cleared.
  static unsigned next_bit(uint64_t& mask) {
    const unsigned at = static_cast<unsigned>(__builtin_ctzll(mask));
    mask &= mask - 1;
    return at;
  }

  void append(uint64_t first, uint64_t length) {
    blocks_.emplace_back(start_ + first, length);
    total_ += length;
  }

  const unsigned long start_;
  std::vector<Block>& blocks_;
  bool in_run_ = false;
  uint64_t run_start_ = 0;
  unsigned long total_ = 0;
};

// Chunk i is bit i % 8 of byte i / 8, least significant first: read little-endian, eight
// bytes make one word with chunk 8k + i at bit 8k + i.
uint64_t load_word(const unsigned char* bytes, size_t count) {
  uint64_t word = 0;
  for (size_t k = 0; k < count; ++k) word |= static_cast<uint64_t>(bytes[k]) << (8 * k);
  return word;
}

}  // namespace

unsigned long parse_change_blocks(const std::basic_string<unsigned char>& bitmap, unsigned long start,
                                  std::vector<Block>& blocks) {
  const unsigned char* bytes = bitmap.data();
  Run_Collector runs(start, blocks);
  const size_t whole_words = bitmap.size() / 8;
  for (size_t w = 0; w < whole_words; ++w) runs.add_word(load_word(bytes + 8 * w, 8), 64ULL * w);
  if (const size_t tail = bitmap.size() % 8)
    runs.add_word(load_word(bytes + 8 * whole_words, tail), 64ULL * whole_words);
  const unsigned long total = runs.finish(8ULL * bitmap.size());
  ACE_DEBUG((LM_INFO, ACE_TEXT("Total trunk blocks: %B.\n"), static_cast<size_t>(total)));
  return total;
}

}  // namespace oceanstor
