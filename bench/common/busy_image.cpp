#include "bench/common/busy_image.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <vector>

#include "bench/common/run_command.h"

namespace cephbench {

namespace {

constexpr uint64_t MiB = 1 << 20;

bool write_content(const std::string& path) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  std::mt19937_64 rng(42);
  std::string text;
  for (int i = 0; text.size() < 2 * MiB; ++i) {
    text += "2026-11-24T10:0" + std::to_string(i % 10) + " backup agent wrote block " +
            std::to_string(i * 7919 % 100003) + " of volume vol-" + std::to_string(i % 13) + "\n";
  }
  std::vector<char> stripe(MiB);
  for (uint64_t at = 0; at < BUSY_IMAGE_SIZE; at += MiB) {
    switch ((at / MiB) % 3) {
      case 0: std::memset(stripe.data(), 0, MiB); break;
      case 1: std::memcpy(stripe.data(), text.data() + (at / MiB) % 4096, MiB); break;
      default:
        for (uint64_t i = 0; i < MiB; i += 8) {
          const uint64_t v = rng();
          std::memcpy(&stripe[i], &v, 8);
        }
    }
    out.write(stripe.data(), MiB);
  }
  return static_cast<bool>(out.flush());
}

}  // namespace

bool make_busy_image(Scratch_Image& image, const std::string& scratch_dir) {
  const std::string raw = scratch_dir + "/busy-image.raw";
  std::fprintf(stderr, "setting up %s: 1 GiB imported, s1, 4096 writes of 4 KiB and 64 MiB "
                       "rewritten, s2\n", image.qualified_name().c_str());
  // The import makes the image (and marks it ours to remove) in one step.
  const bool made = write_content(raw) && image.adopt() &&
                    run_rbd(image.conf(), {"import", "--no-progress", "--object-size", "4M",
                                           raw, image.qualified_name()}, nullptr);
  ::unlink(raw.c_str());
  return made && image.snapshot("s1") && image.scatter(4096, 4096) &&
         run_rbd(image.conf(), {"bench", "--io-type", "write", "--io-size", "4M", "--io-total",
                                "64M", "--io-pattern", "seq", image.qualified_name()},
                 nullptr) &&
         image.snapshot("s2");
}

const char* sandbox_conf(const char* program) {
  const char* conf = std::getenv("AGENTUTIL_CEPH_CONF");
  if (conf != nullptr && *conf != '\0') return conf;
  std::fprintf(stderr, "%s: AGENTUTIL_CEPH_CONF is not set (scripts/run-benches starts a "
                       "sandbox cluster)\n", program);
  return nullptr;
}

std::string scratch_dir(const char* prefix) {
  std::string path = std::string("/tmp/") + prefix + ".XXXXXX";
  return ::mkdtemp(&path[0]) ? path : std::string();
}

void remove_image(const std::string& conf, const std::string& pool, const std::string& name) {
  const std::string rbd_path = pool + "/" + name;
  std::string listing;
  if (!run_rbd(conf, {"ls", pool}, &listing)) return;
  if (("\n" + listing).find("\n" + name + "\n") == std::string::npos) return;
  run_rbd(conf, {"snap", "purge", "--no-progress", rbd_path}, nullptr);
  run_rbd(conf, {"rm", "--no-progress", rbd_path}, nullptr);
}

uint64_t file_size(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

}  // namespace cephbench
