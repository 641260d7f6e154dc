// OceanStor changed-block bitmaps: turning the array's bitmap into extents, against
// memcpy of the same bytes. The bitmap is that of a 16 TiB LUN at 64 KiB chunks (32 MiB,
// 256 M chunks) with about 2% of the chunks changed, in runs of 1 to 64 chunks the way
// file-system writes cluster. Hex decoding of the reply text is measured the same way.
// Prints one line per comparison: "name: ours X, peer Y, ratio Z".
#include <ace/Log_Msg.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "framework/base/hex_string.h"
#include "utils/agent/oceanstor/oceanstor_client.h"

namespace {

constexpr size_t BITMAP_BYTES = 32u << 20;

using Bytes = std::basic_string<unsigned char>;

const Bytes& changed_bitmap() {
  static const Bytes bitmap = [] {
    std::mt19937_64 rng(7);
    Bytes out(BITMAP_BYTES, 0);
    const uint64_t bits = BITMAP_BYTES * 8ULL;
    for (uint64_t at = rng() % 4096; at < bits; at += 1 + rng() % 3200) {
      const uint64_t run = 1 + rng() % 64;
      for (uint64_t i = at; i < at + run && i < bits; ++i) out[i / 8] |= static_cast<unsigned char>(1u << (i % 8));
      at += run;
    }
    return out;
  }();
  return bitmap;
}

const std::string& bitmap_text() {
  static const std::string text = hex_encode(changed_bitmap().data(), changed_bitmap().size(), Hex_Case::UPPER);
  return text;
}

void Parse_Change_Blocks_Ours(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<Block> blocks;
    benchmark::DoNotOptimize(oceanstor::parse_change_blocks(changed_bitmap(), 0, blocks));
    benchmark::DoNotOptimize(blocks.data());
  }
}

void Memcpy_Bitmap_Peer(benchmark::State& state) {
  std::vector<unsigned char> copy(BITMAP_BYTES);
  for (auto _ : state) {
    std::memcpy(copy.data(), changed_bitmap().data(), BITMAP_BYTES);
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
}

void Hex_Decode_Ours(benchmark::State& state) {
  std::vector<unsigned char> bytes;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Hex_String(bitmap_text()).get_bytes(bytes));
    benchmark::DoNotOptimize(bytes.data());
  }
}

void Memcpy_Text_Peer(benchmark::State& state) {
  std::vector<char> copy(bitmap_text().size());
  for (auto _ : state) {
    std::memcpy(copy.data(), bitmap_text().data(), copy.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
}

// Keeps the CPU time of each benchmark (ms) for the comparison lines.
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

void compare(const Capturing_Reporter& r, const char* what, const char* ours, const char* peer) {
  const auto o = r.ms.find(ours), p = r.ms.find(peer);
  if (o == r.ms.end() || p == r.ms.end()) return;
  std::printf("%s: ours %.1f ms, peer %.1f ms, ratio %.2f\n", what, o->second, p->second, o->second / p->second);
}

}  // namespace

BENCHMARK(Parse_Change_Blocks_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(Memcpy_Bitmap_Peer)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(Hex_Decode_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(Memcpy_Text_Peer)->Unit(benchmark::kMillisecond)->MinTime(2.0);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  // The per-call totals the library logs would drown the report.
  ACE_Log_Msg::instance()->priority_mask(LM_ERROR | LM_CRITICAL | LM_ALERT | LM_EMERGENCY, ACE_Log_Msg::PROCESS);
  std::vector<Block> blocks;
  const unsigned long changed = oceanstor::parse_change_blocks(changed_bitmap(), 0, blocks);
  std::printf("bitmap: %zu bytes, %lu changed chunks in %zu extents\n", changed_bitmap().size(), changed,
              blocks.size());
  Capturing_Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  compare(reporter, "bitmap to extents vs memcpy of the bitmap", "Parse_Change_Blocks_Ours", "Memcpy_Bitmap_Peer");
  compare(reporter, "bitmap hex decode vs memcpy of the text", "Hex_Decode_Ours", "Memcpy_Text_Peer");
  benchmark::Shutdown();
  return 0;
}
