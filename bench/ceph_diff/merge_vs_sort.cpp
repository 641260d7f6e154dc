#include "bench/ceph_diff/merge_vs_sort.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "bench/common/timing.h"
#include "utils/agent/block.h"
#include "utils/agent/ceph/changed_blocks.h"

namespace cephbench {

namespace {

constexpr size_t EXTENTS = 10000000;
constexpr uint64_t GRID = 4096;
constexpr int REPETITIONS = 7;

// Random offsets over a span about as long as all extents laid end to end, so most of
// them overlap or touch a neighbour. Three in four sit on a 4 KiB grid (exact adjacency
// is common there), the rest start and end anywhere.
Blocks synthetic_extents() {
  std::mt19937_64 rng(20261121);
  const uint64_t span = EXTENTS * 8 * GRID;
  Blocks out;
  out.reserve(EXTENTS);
  for (size_t i = 0; i < EXTENTS; ++i) {
    if (rng() % 4 != 0) {
      out.emplace_back(rng() % (span / GRID) * GRID, (1 + rng() % 16) * GRID);
    } else {
      out.emplace_back(rng() % span, 1 + rng() % (16 * GRID));
    }
  }
  return out;
}

// Sorted, and each extent ends strictly before the next begins; over the same span.
bool merged_correctly(const Blocks& input, const Blocks& merged) {
  if (merged.empty()) return input.empty();
  for (size_t i = 1; i < merged.size(); ++i)
    if (merged[i - 1].end() >= merged[i].offset) return false;
  uint64_t lowest = UINT64_MAX, highest_end = 0;
  for (const Block& b : input) {
    lowest = std::min(lowest, b.offset);
    highest_end = std::max(highest_end, b.end());
  }
  return merged.front().offset == lowest && merged.back().end() == highest_end;
}

void bare_sort(Blocks& blocks) {
  // The comparator the library sorts with.
  std::sort(blocks.begin(), blocks.end(),
            [](const Block& a, const Block& b) { return a.offset < b.offset; });
}

struct Sample {
  double cpu_ms;
  double wall_ms;
};

// Times `work` on a fresh copy of `input`; `scratch` keeps its capacity between runs, so
// both sides work in the same, already touched memory and the copy stays off the clock.
template <class Work>
Sample time_on_copy(const Blocks& input, Blocks& scratch, Work work) {
  scratch.assign(input.begin(), input.end());
  bench::Wall_Clock wall;
  bench::Thread_Cpu_Clock cpu;
  work(scratch);
  const Sample s{cpu.ms(), wall.ms()};
  benchmark::DoNotOptimize(scratch.data());
  benchmark::ClobberMemory();
  return s;
}

}  // namespace

int compare_merge_with_sort(const ceph::Cancel_Callback& cancelled) {
  const Blocks input = synthetic_extents();
  Blocks scratch;
  scratch.reserve(input.size());
  scratch.assign(input.begin(), input.end());
  ceph::sort_and_merge_blocks(scratch);
  if (!merged_correctly(input, scratch)) {
    std::fprintf(stderr, "extent sort+merge vs std::sort: the merged list is wrong\n");
    return 1;
  }
  std::printf("synthetic extents: %zu, %zu after merging\n", input.size(), scratch.size());

  std::vector<double> ours_cpu, ours_wall, peer_cpu, peer_wall;
  for (int r = 0; r < REPETITIONS && !cancelled(); ++r) {
    // Alternate which goes first, so neither always follows the other.
    for (int side = 0; side < 2; ++side) {
      if ((side + r) % 2 == 0) {
        const Sample s = time_on_copy(input, scratch, ceph::sort_and_merge_blocks);
        ours_cpu.push_back(s.cpu_ms);
        ours_wall.push_back(s.wall_ms);
      } else {
        const Sample s = time_on_copy(input, scratch, bare_sort);
        peer_cpu.push_back(s.cpu_ms);
        peer_wall.push_back(s.wall_ms);
      }
    }
  }
  if (cancelled()) return 1;
  const double ours = bench::median(ours_cpu), peer = bench::median(peer_cpu);
  bench::print_comparison("extent sort+merge vs std::sort", ours, peer);
  std::printf("  (thread CPU medians of %d on %zu extents, copy off the clock; wall medians:"
              " ours %.1f ms, peer %.1f ms)\n",
              REPETITIONS, input.size(), bench::median(ours_wall), bench::median(peer_wall));
  return 0;
}

}  // namespace cephbench
