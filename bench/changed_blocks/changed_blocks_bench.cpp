// Sort-and-merge of changed extents against a bare std::sort of the same extents: the
// merge pass should add little to the sort it follows. The data looks like what a changed-
// block scan collects: 1 M extents cut to a 64 KiB grid, mostly in disk order with runs of
// touching and overlapping extents, some out of order. Prints one line per comparison:
// "name: ours X, peer Y, ratio Z".
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "utils/agent/ceph/changed_blocks.h"

namespace {

constexpr uint64_t CHUNK = 64 * 1024;
constexpr size_t EXTENTS = 1 << 20;

const Blocks& scanned_extents() {
  static const Blocks extents = [] {
    std::mt19937_64 rng(42);
    Blocks out;
    out.reserve(EXTENTS);
    uint64_t at = 0;
    for (size_t i = 0; i < EXTENTS; ++i) {
      // A gap of 0 to 3 chunks; now and then a step back (librbd reports per object).
      at += (rng() % 4) * CHUNK;
      if (rng() % 16 == 0 && at > 64 * CHUNK) at -= (rng() % 64) * CHUNK;
      const uint64_t length = 1 + rng() % (3 * CHUNK);
      out.push_back(ceph::chunk_aligned_block(at + rng() % CHUNK, length, CHUNK));
      at += length;
    }
    return out;
  }();
  return extents;
}

// Both copy the input in the timed loop, so the difference is the merge pass alone.
void Sort_And_Merge_Ours(benchmark::State& state) {
  for (auto _ : state) {
    Blocks blocks = scanned_extents();
    ceph::sort_and_merge_blocks(blocks);
    benchmark::DoNotOptimize(blocks.data());
  }
}

void Sort_Only_Std(benchmark::State& state) {
  for (auto _ : state) {
    Blocks blocks = scanned_extents();
    std::sort(blocks.begin(), blocks.end(),
              [](const Block& a, const Block& b) { return a.offset < b.offset; });
    benchmark::DoNotOptimize(blocks.data());
  }
}

// Keeps the CPU time of each benchmark (ms) for the comparison line.
class Capturing_Reporter : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, double> ms;
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      const std::string name = r.benchmark_name();
      ms[name.substr(0, name.find('/'))] = r.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

BENCHMARK(Sort_And_Merge_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(Sort_Only_Std)->Unit(benchmark::kMillisecond)->MinTime(2.0);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Blocks merged = scanned_extents();
  ceph::sort_and_merge_blocks(merged);
  std::printf("changed extents: %zu collected, %zu after merging\n", scanned_extents().size(),
              merged.size());
  Capturing_Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const auto o = reporter.ms.find("Sort_And_Merge_Ours"), p = reporter.ms.find("Sort_Only_Std");
  if (o != reporter.ms.end() && p != reporter.ms.end())
    std::printf("extent sort and merge vs std::sort: ours %.1f ms, peer %.1f ms, ratio %.2f\n",
                o->second, p->second, o->second / p->second);
  benchmark::Shutdown();
  return 0;
}
