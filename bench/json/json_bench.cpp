// Parse and dump of a ~20 MB catalog listing: ours (json_spirit over RapidJSON's SAX
// reader and Writer) against RapidJSON's own DOM and nlohmann::json, on the same text,
// in one run. Prints one line per comparison: "name: ours X, peer Y, ratio Z".
//
// What each iteration measures, the same for all three libraries:
//   Parse_*: parsing the text into a document and destroying that document again (each
//            library pays for freeing what it allocated).
//   Dump_*:  writing an already parsed document as compact text: a std::string for ours
//            and nlohmann, RapidJSON's StringBuffer for RapidJSON. Freeing the text is
//            included.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <random>
#include <string>

#include "bench/common/timing.h"
#include "framework/json/rapidjson_setup.h"
#include "framework/json/reader.h"
#include "framework/json/writer.h"
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace {

using Json_Writer = rapidjson::Writer<rapidjson::StringBuffer>;

const char* const OWNERS[] = {"root", "backup", "svc-agent", "\xE5\xBC\xA0\xE4\xB8\x89",
                              "j\xC3\xBCrgen"};
const char* const DIRS[] = {"/var/lib/mysql", "C:\\Users\\admin\\Documents", "/home/\"q\"/tab\there",
                            "/data/\xE6\x96\x87\xE4\xBB\xB6", "/srv/www/static"};

// One row of a catalog listing: a file with its attributes and stored extents. Members
// come in the server's order, not sorted.
void write_row(Json_Writer& w, std::mt19937_64& rng, uint64_t id) {
  w.StartObject();
  w.Key("id");
  w.Uint64(id * 0x9E3779B97F4A7C15ULL);  // full 64-bit values
  const std::string name = std::string(DIRS[rng() % 5]) + "/file_" + std::to_string(id) +
                           (rng() % 4 == 0 ? ".tar.gz" : ".dat");
  w.Key("name");
  w.String(name.c_str(), static_cast<rapidjson::SizeType>(name.size()));
  w.Key("size");
  w.Int64(static_cast<int64_t>(rng() >> 20));
  w.Key("mtime");
  w.Int64(1600000000 + static_cast<int64_t>(rng() % 100000000));
  w.Key("ratio");
  w.Double(static_cast<double>(rng() % 10000) / 9973.0);
  w.Key("deleted");
  w.Bool(rng() % 10 == 0);
  w.Key("link");
  w.Null();
  w.Key("attrs");
  w.StartObject();
  w.Key("mode");
  w.Int(0644);
  w.Key("owner");
  w.String(OWNERS[rng() % 5]);
  w.Key("uid");
  w.Int(static_cast<int>(rng() % 65536));
  w.EndObject();
  w.Key("blocks");
  w.StartArray();
  for (int b = 0, n = static_cast<int>(rng() % 4); b < n; ++b) {
    w.StartObject();
    w.Key("offset");
    w.Uint64(rng() & 0xFFFFFFFFFFFFULL);
    w.Key("length");
    w.Uint64(65536);
    w.EndObject();
  }
  w.EndArray();
  char sum[33];
  std::snprintf(sum, sizeof sum, "%016llx%016llx", static_cast<unsigned long long>(rng()),
                static_cast<unsigned long long>(rng()));
  w.Key("checksum");
  w.String(sum);
  w.EndObject();
}

std::string make_catalog(std::size_t target_bytes) {
  rapidjson::StringBuffer buf;
  Json_Writer w(buf);
  std::mt19937_64 rng(20240611);
  w.StartObject();
  w.Key("catalog");
  w.String("daily-full");
  w.Key("rows");
  w.StartArray();
  uint64_t id = 0;
  while (buf.GetSize() < target_bytes) write_row(w, rng, id++);
  w.EndArray();
  w.Key("total");
  w.Uint64(id);
  w.EndObject();
  return std::string(buf.GetString(), buf.GetSize());
}

const std::string& catalog() {
  static const std::string text = make_catalog(20u << 20);
  return text;
}

void Parse_Ours(benchmark::State& state) {
  for (auto _ : state) {
    json_spirit::Value v;
    if (!json_spirit::read(catalog(), v)) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(v);
  }
}

void Parse_RapidJSON(benchmark::State& state) {
  for (auto _ : state) {
    rapidjson::Document d;
    d.Parse(catalog().c_str(), catalog().size());
    if (d.HasParseError()) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(d);
  }
}

void Parse_Nlohmann(benchmark::State& state) {
  for (auto _ : state) {
    nlohmann::json j = nlohmann::json::parse(catalog());
    benchmark::DoNotOptimize(j);
  }
}

void Dump_Ours(benchmark::State& state) {
  json_spirit::Value v;
  json_spirit::read(catalog(), v);
  for (auto _ : state) {
    std::string text = json_spirit::write(v);
    benchmark::DoNotOptimize(text);
  }
}

void Dump_RapidJSON(benchmark::State& state) {
  rapidjson::Document d;
  d.Parse(catalog().c_str(), catalog().size());
  for (auto _ : state) {
    rapidjson::StringBuffer buf;
    Json_Writer w(buf);
    d.Accept(w);
    benchmark::DoNotOptimize(buf.GetString());
  }
}

void Dump_Nlohmann(benchmark::State& state) {
  const nlohmann::json j = nlohmann::json::parse(catalog());
  for (auto _ : state) {
    std::string text = j.dump();
    benchmark::DoNotOptimize(text);
  }
}

// Keeps the CPU time of each benchmark (in its unit, ms here) for the comparison lines.
class Capturing_Reporter : public benchmark::ConsoleReporter {
 public:
  // No colours: the comparison lines are read by scripts and pasted into notes.
  Capturing_Reporter() : benchmark::ConsoleReporter(OO_Tabular) {}
  std::map<std::string, double> ms;
  void ReportRuns(const std::vector<Run>& runs) override {
    // CPU time: the machine is shared, and each benchmark runs on one thread.
    for (const Run& r : runs) {
      const std::string name = r.benchmark_name();
      ms[name.substr(0, name.find('/'))] = r.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

void compare(const Capturing_Reporter& r, const char* name, const char* ours, const char* peer) {
  const auto o = r.ms.find(ours), p = r.ms.find(peer);
  if (o == r.ms.end() || p == r.ms.end()) return;
  bench::print_comparison(name, o->second, p->second);
}

}  // namespace

BENCHMARK(Parse_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(Parse_RapidJSON)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(Parse_Nlohmann)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(Dump_Ours)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(Dump_RapidJSON)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(Dump_Nlohmann)->Unit(benchmark::kMillisecond)->MinTime(2.0);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::printf("catalog listing: %zu bytes\n", catalog().size());
  Capturing_Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  compare(reporter, "json parse vs rapidjson dom", "Parse_Ours", "Parse_RapidJSON");
  compare(reporter, "json parse vs nlohmann", "Parse_Ours", "Parse_Nlohmann");
  compare(reporter, "json dump vs rapidjson writer", "Dump_Ours", "Dump_RapidJSON");
  compare(reporter, "json dump vs nlohmann", "Dump_Ours", "Dump_Nlohmann");
  benchmark::Shutdown();
  return 0;
}
