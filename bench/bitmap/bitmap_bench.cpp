// OceanStor changed-block bitmaps: the array's hex text turned into chunk extents the way
// get_changed_blocks does it, segment by segment as the replies arrive (each 2 GiB segment of
// the LUN is 8 KiB of text at 64 KiB chunks: copied out of its reply, decoded, folded), on the
// bitmap of a 64 TiB LUN: 2^30 chunks, 128 MiB of bytes, 256 MiB of hex text in 32768 segments.
// Three patterns: sparse runs of 1-64 changed chunks (file-system writes), 1% of the chunks
// changed at random, and alternating bits (the worst case: one extent per two chunks).
// Peers, in the same run: memcpy of the same text; a plain bit-by-bit walk over the same
// decoded bytes (the same decoder on the whole text, then one test per bit); and the whole
// text decoded at once, then folded in one pass (parse_change_blocks).
// Times are medians of the calling thread's CPU time, which the other jobs of a busy machine
// disturb less than wall time. Both sides reuse one byte buffer and one extent list, so that
// page faults (8 GiB of extents for the alternating bits) are off the clock.
#include <ace/Log_Msg.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "bench/common/timing.h"
#include "framework/base/hex_string.h"
#include "utils/agent/oceanstor/change_blocks_internal.h"
#include "utils/agent/oceanstor/oceanstor_client.h"

namespace {

using Bytes = std::basic_string<unsigned char>;

constexpr uint64_t CHUNKS = 1ULL << 30;
constexpr size_t BITMAP_BYTES = CHUNKS / 8;
constexpr size_t SEGMENT_DIGITS = 2 * (2147483648ULL / 65536 / 8);

void set_bit(Bytes& bytes, uint64_t i) { bytes[i / 8] |= static_cast<unsigned char>(1u << (i % 8)); }

Bytes sparse_runs() {
  std::mt19937_64 rng(7);
  Bytes out(BITMAP_BYTES, 0);
  for (uint64_t at = rng() % 4096; at < CHUNKS; at += 1 + rng() % 3200) {
    const uint64_t run = 1 + rng() % 64;
    for (uint64_t i = at; i < at + run && i < CHUNKS; ++i) set_bit(out, i);
    at += run;
  }
  return out;
}

Bytes one_percent_random() {
  std::mt19937_64 rng(11);
  std::geometric_distribution<uint64_t> gap(0.01);
  Bytes out(BITMAP_BYTES, 0);
  for (uint64_t at = gap(rng); at < CHUNKS; at += 1 + gap(rng)) set_bit(out, at);
  return out;
}

Bytes alternating_bits() { return Bytes(BITMAP_BYTES, 0x55); }

// The plainest reading of the bitmap: one test per bit, a run counter, an extent per run.
unsigned long bit_by_bit_walk(const Bytes& bitmap, std::vector<Block>& blocks) {
  const uint64_t bits = 8ULL * bitmap.size();
  unsigned long run = 0, total = 0;
  for (uint64_t i = 0; i < bits; ++i) {
    if (bitmap[i / 8] >> (i % 8) & 1) {
      ++run;
    } else if (run != 0) {
      blocks.emplace_back(i - run, run);
      total += run;
      run = 0;
    }
  }
  if (run != 0) {
    blocks.emplace_back(bits - run, run);
    total += run;
  }
  return total;
}

uint64_t fingerprint(const std::vector<Block>& blocks) {
  uint64_t h = blocks.size();
  for (const Block& b : blocks) h = (h ^ b.offset) * 0x100000001b3ULL ^ b.length;
  return h;
}

struct Buffers {
  Bytes bytes;
  std::vector<Block> blocks;
  std::string text_copy;
  std::string segment;
};

// Median thread CPU time (ms) of `work` over `repetitions` runs.
double time_ms(int repetitions, const std::function<void()>& work) {
  std::vector<double> samples;
  for (int r = 0; r < repetitions; ++r) {
    bench::Thread_Cpu_Clock clock;
    work();
    samples.push_back(clock.ms());
  }
  return bench::median(samples);
}

bool compare_pattern(const char* pattern, const Bytes& bitmap, int repetitions) {
  const std::string text = hex_encode(bitmap.data(), bitmap.size(), Hex_Case::UPPER);
  Buffers buf;
  buf.text_copy.resize(text.size());
  auto ours = [&] {
    buf.blocks.clear();
    oceanstor::Change_Block_Folder folder(0, buf.blocks);
    for (size_t at = 0; at < text.size(); at += SEGMENT_DIGITS) {
      buf.segment.assign(text, at, SEGMENT_DIGITS);
      if (!folder.add_hex(buf.segment)) std::abort();
    }
    folder.finish();
  };
  auto whole = [&] {
    buf.blocks.clear();
    if (!hex_decode(text, buf.bytes)) std::abort();
    oceanstor::parse_change_blocks(buf.bytes, 0, buf.blocks);
  };
  auto walk = [&] {
    buf.blocks.clear();
    if (!hex_decode(text, buf.bytes)) std::abort();
    bit_by_bit_walk(buf.bytes, buf.blocks);
  };
  ours();
  const uint64_t ours_print = fingerprint(buf.blocks);
  const size_t extents = buf.blocks.size();
  whole();
  const bool whole_agrees = fingerprint(buf.blocks) == ours_print;
  walk();
  if (!whole_agrees || fingerprint(buf.blocks) != ours_print || buf.bytes != bitmap) {
    std::fprintf(stderr, "bitmap %s: the extents differ from the bit-by-bit walk\n", pattern);
    return false;
  }
  const double ours_ms = time_ms(repetitions, ours);
  const double copy_ms = time_ms(repetitions, [&] {
    std::memcpy(&buf.text_copy[0], text.data(), text.size());
    asm volatile("" : : "r"(buf.text_copy.data()) : "memory");
  });
  const double walk_ms = time_ms(repetitions, walk);
  const double whole_ms = time_ms(repetitions, whole);
  const std::string name = std::string("bitmap ") + pattern + ", hex segments to extents";
  bench::print_comparison((name + " vs memcpy of the text").c_str(), ours_ms, copy_ms);
  bench::print_comparison((name + " vs bit-by-bit walk").c_str(), ours_ms, walk_ms);
  bench::print_comparison((name + " vs whole text at once").c_str(), ours_ms, whole_ms);
  std::printf("  (%zu MiB of text, %zu extents; ours %.2f GB/s of text)\n", text.size() >> 20,
              extents, static_cast<double>(text.size()) / (ours_ms * 1e6));
  return true;
}

}  // namespace

int main() {
  // The per-call totals the library logs would drown the report.
  ACE_Log_Msg::instance()->priority_mask(LM_ERROR | LM_CRITICAL | LM_ALERT | LM_EMERGENCY,
                                         ACE_Log_Msg::PROCESS);
  bool ok = compare_pattern("sparse runs", sparse_runs(), 7);
  ok = compare_pattern("1% random", one_percent_random(), 5) && ok;
  ok = compare_pattern("alternating bits", alternating_bits(), 3) && ok;
  return ok ? 0 : 1;
}
