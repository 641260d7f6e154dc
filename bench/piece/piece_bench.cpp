// Backup pieces on 1 GiB of image-like data: 1 MiB stripes cycling through zeros,
// compressible text and random bytes (a third each).
//   piece write (Image_Block_Writer to a directory pool, published with fsync) against
//     `zstd -1` of the raw image and against `cp` of it, each followed by `sync` of its
//     output so that both sides pay for durability;
//   piece read (Image_Block_Reader, every record checked, blocks to a discarding sink)
//     against `zstd -d` to /dev/null and `cp` of the raw image to /dev/null;
//   with the sandbox's S3 gateway (AGENTUTIL_CEPH_CONF, s3.env beside it): the piece's
//     bytes up and down through an S3 pool against `curl` PUT and GET of the same file.
// Wall times, median of three runs each. The S3 sides alternate and take the median of
// nine uploads and seven downloads: on two cores shared with the gateway and the OSD, one
// transfer's time swings by a tenth either way.
#include <ace/Log_Msg.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench/common/quiet_cluster.h"
#include "bench/common/timing.h"
#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/image_block_reader.h"
#include "framework/client_io/image_block_writer.h"

namespace {

constexpr uint64_t MiB = 1 << 20;
constexpr uint64_t IMAGE = 1024 * MiB;
constexpr int RUNS = 3;
constexpr int UPLOAD_RUNS = 9;
constexpr int DOWNLOAD_RUNS = 7;

std::string make_image() {
  std::string image(IMAGE, '\0');
  std::mt19937_64 rng(42);
  std::string text;
  for (int i = 0; text.size() < 2 * MiB; ++i) {
    text += "2026-11-23T19:0" + std::to_string(i % 10) + " backup agent wrote block " +
            std::to_string(i * 7919 % 100003) + " of volume vol-" + std::to_string(i % 13) + "\n";
  }
  for (uint64_t at = 0; at < IMAGE; at += MiB) {
    switch ((at / MiB) % 3) {
      case 0: break;  // zeros
      case 1: std::memcpy(&image[at], text.data() + (at / MiB) % 4096, MiB); break;
      case 2:
        for (uint64_t i = at; i < at + MiB; i += 8) {
          const uint64_t v = rng();
          std::memcpy(&image[i], &v, 8);
        }
        break;
    }
  }
  return image;
}

// `after` runs off the clock after each run (to clean up).
double timed(const std::function<bool()>& f, const std::function<void()>& after = {}) {
  std::vector<double> runs;
  for (int i = 0; i < RUNS; ++i) {
    bench::Wall_Clock c;
    if (!f()) {
      std::fprintf(stderr, "bench_piece: a run failed\n");
      std::exit(1);
    }
    runs.push_back(c.ms());
    if (after) after();
  }
  return bench::median(runs);
}

bool shell(const std::string& command) { return std::system(command.c_str()) == 0; }

bool write_piece(const std::string& pool, const Client_IO_Base::Options& o, const std::string& image) {
  Client_IO_Ex io;
  if (!io.connect(pool, o) || !io.open("piece", Client_IO_Base::OPEN_WRITE, 0, 0)) return false;
  Image_Block_Writer w(io);
  bool ok = w.begin(IMAGE, 4 * MiB);
  for (uint64_t at = 0; ok && at < IMAGE; at += 4 * MiB) ok = w.append(at, image.data() + at, 4 * MiB);
  return ok && w.finish() && io.close();
}

bool read_piece(const std::string& pool, const Client_IO_Base::Options& o) {
  Client_IO_Ex io;
  if (!io.connect(pool, o) || !io.open("piece", Client_IO_Base::OPEN_READ, 0, 0)) return false;
  uint64_t seen = 0;
  const bool ok = Image_Block_Reader::read_blocks_align(&io, [&](const void*, size_t n, off_t) {
    seen += n;
    return true;
  }, 4 * MiB);
  return ok && seen == IMAGE;
}

std::map<std::string, std::string> read_env(const std::string& path) {
  std::map<std::string, std::string> env;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    const size_t eq = line.find('=');
    if (eq != std::string::npos) env[line.substr(0, eq)] = line.substr(eq + 1);
  }
  return env;
}

void s3_comparisons(const std::string& dir, const std::string& piece_file) {
  const char* conf = std::getenv("AGENTUTIL_CEPH_CONF");
  if (conf == nullptr) return;
  const std::string c = conf;
  auto env = read_env(c.substr(0, c.rfind('/')) + "/s3.env");
  if (env["S3_URL"].empty()) return;
  Client_IO_Base::Options o;
  o.access_key = env["S3_ACCESS_KEY"];
  o.secret_key = env["S3_SECRET_KEY"];
  const std::string host = env["S3_URL"].substr(5);
  // The keys reach curl through a config file, not its command line.
  const std::string curl_conf = dir + "/curl.conf";
  std::ofstream(curl_conf) << "user = \"" << o.access_key << ":" << o.secret_key << "\"\n"
                           << "aws-sigv4 = \"aws:amz:us-east-1:s3\"\n"
                           << "header = \"x-amz-content-sha256: UNSIGNED-PAYLOAD\"\n"
                           << "silent\nfail\n";
  const std::string curl = "curl -K " + curl_conf + " ";
  if (!shell(curl + "-X PUT http://" + host + "/piece-bench")) return;
  std::ifstream in(piece_file, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  const std::string pool = env["S3_URL"] + "/piece-bench";
  // The sandbox's OSD keeps objects in a few GiB of RAM: each upload is deleted, and its
  // space collected by the gateway (5-10 s later, then some seconds of work) before the
  // next one starts.
  const auto drop = [&](const char* key) {
    shell(curl + "-X DELETE http://" + host + "/piece-bench/" + key);
    std::this_thread::sleep_for(std::chrono::seconds(12));
  };
  const auto upload = [&] {
    Client_IO_Ex io;
    return io.connect(pool, o) && io.open("piece", Client_IO_Base::OPEN_WRITE, 0, 0) &&
           io.write(bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) && io.close();
  };
  const auto curl_upload = [&] {
    return shell(curl + "-T " + piece_file + " http://" + host + "/piece-bench/curl-piece");
  };
  // A fresh sandbox's first uploads are slow (a first curl PUT took 3.3 s, the next ones
  // 1.3-1.4 s). One untimed upload each, so that this cost falls on neither side.
  if (!upload() || !curl_upload()) {
    std::fprintf(stderr, "bench_piece: the warm-up uploads failed\n");
    std::exit(1);
  }
  drop("piece");
  drop("curl-piece");
  // One run's milliseconds, or -1 when it failed, started once the gateway and OSD are
  // quiet; `after` runs off the clock.
  const auto timed_once = [&](const std::function<bool()>& f, const std::function<void()>& after) {
    cephbench::wait_until_quiet(c);
    bench::Wall_Clock clock;
    const bool ok = f();
    const double ms = clock.ms();
    if (after) after();
    return ok ? ms : -1.0;
  };
  const bench::Paired_Medians up = bench::alternate(
      UPLOAD_RUNS, [&] { return timed_once(upload, [&] { drop("piece"); }); },
      [&] { return timed_once(curl_upload, [&] { drop("curl-piece"); }); });
  if (!up.ok()) {
    std::fprintf(stderr, "bench_piece: an S3 upload failed\n");
    std::exit(1);
  }
  bench::print_comparison("s3 upload of the piece vs curl PUT", up.ours, up.peer);
  // Both sides read the same object, the piece as our writer stored it (in parts).
  if (!upload()) {
    std::fprintf(stderr, "bench_piece: the upload for the download comparison failed\n");
    std::exit(1);
  }
  std::string back(bytes.size(), '\0');
  const auto ours_download = [&] {
    Client_IO_Ex io;
    if (!io.connect(pool, o) || !io.open("piece", Client_IO_Base::OPEN_READ, 0, 0)) return false;
    for (uint64_t at = 0; at < back.size(); at += 8 * MiB) {
      const size_t n = std::min<uint64_t>(8 * MiB, back.size() - at);
      if (io.pread(&back[at], n, at) != static_cast<ssize_t>(n)) return false;
    }
    return true;
  };
  const auto curl_download = [&] {
    return shell(curl + "-o /dev/null http://" + host + "/piece-bench/piece");
  };
  const bench::Paired_Medians down = bench::alternate(
      DOWNLOAD_RUNS, [&] { return timed_once(ours_download, {}); },
      [&] { return timed_once(curl_download, {}); });
  if (!down.ok() || back != bytes) {  // checked off the clock: curl's side compares nothing
    std::fprintf(stderr, "bench_piece: the S3 download failed or differs from the upload\n");
    std::exit(1);
  }
  bench::print_comparison("s3 download of the piece vs curl GET", down.ours, down.peer);
  shell(curl + "-X DELETE http://" + host + "/piece-bench/piece");
  shell(curl + "-X DELETE http://" + host + "/piece-bench");
}

}  // namespace

// With "s3" only the S3 comparisons run (the piece is written once, untimed).
int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  char tmpl[] = "/tmp/bench_piece.XXXXXX";
  const std::string dir = ::mkdtemp(tmpl) ? tmpl : "";
  if (dir.empty()) return 1;
  const std::string image = make_image();
  const std::string raw = dir + "/raw.img", pool = "file://" + dir;
  std::ofstream(raw, std::ios::binary).write(image.data(), image.size());
  Client_IO_Base::Options o;
  o.compression_method = COMPR_ZSTD;
  if (argc > 1 && std::string(argv[1]) == "s3") {
    if (!write_piece(pool, o, image)) return 1;
    s3_comparisons(dir, dir + "/piece");
    shell("rm -rf " + dir);
    return 0;
  }

  const double write = timed([&] { return write_piece(pool, o, image); });
  const double zstd = timed([&] { return shell("zstd -1 -q -f " + raw + " -o " + raw + ".zst && sync " + raw + ".zst"); });
  const double cp = timed([&] { return shell("cp " + raw + " " + raw + ".copy && sync " + raw + ".copy"); });
  bench::print_comparison("piece write (zstd) vs zstd -1", write, zstd);
  bench::print_comparison("piece write (zstd) vs cp", write, cp);

  const double read = timed([&] { return read_piece(pool, o); });
  const double unzstd = timed([&] { return shell("zstd -d -q -c " + raw + ".zst > /dev/null"); });
  const double cat = timed([&] { return shell("cp " + raw + " /dev/null"); });
  bench::print_comparison("piece read (checked) vs zstd -d", read, unzstd);
  bench::print_comparison("piece read (checked) vs cp", read, cat);

  std::ifstream piece_in(dir + "/piece", std::ios::ate | std::ios::binary);
  std::ifstream zst_in(raw + ".zst", std::ios::ate | std::ios::binary);
  std::printf("sizes: image %llu MiB, piece %llu MiB, zstd -1 %llu MiB\n",
              static_cast<unsigned long long>(IMAGE / MiB),
              static_cast<unsigned long long>(piece_in.tellg() / MiB),
              static_cast<unsigned long long>(zst_in.tellg() / MiB));
  s3_comparisons(dir, dir + "/piece");
  shell("rm -rf " + dir);
  return 0;
}
