#include "bench/common/scratch_image.h"

#include <cstdio>
#include <utility>

#include "bench/common/run_command.h"

namespace cephbench {

bool run_rbd(const std::string& conf, const std::vector<std::string>& args, std::string* out) {
  std::vector<std::string> argv{"rbd", "-c", conf};
  argv.insert(argv.end(), args.begin(), args.end());
  return run_command(argv, out);
}

Scratch_Image::Scratch_Image(std::string conf, std::string pool, std::string name)
    : conf_(std::move(conf)), pool_(std::move(pool)), name_(std::move(name)) {}

Scratch_Image::~Scratch_Image() {
  if (!created_) return;
  const bool purged = run_rbd(conf_, {"snap", "purge", "--no-progress", qualified_name()}, nullptr);
  const bool removed = run_rbd(conf_, {"rm", "--no-progress", qualified_name()}, nullptr);
  if (!purged || !removed)
    std::fprintf(stderr, "could not remove the image %s; remove it by hand\n",
                 qualified_name().c_str());
}

bool Scratch_Image::name_taken(bool& taken) const {
  std::string listing;
  if (!run_rbd(conf_, {"ls", pool_}, &listing)) return false;
  taken = ("\n" + listing).find("\n" + name_ + "\n") != std::string::npos;
  return true;
}

bool Scratch_Image::adopt() {
  bool taken = true;
  if (!name_taken(taken)) return false;
  if (taken) {
    std::fprintf(stderr, "an image %s exists already; it is not ours to use\n",
                 qualified_name().c_str());
    return false;
  }
  // Ours from here on: a create that fails half-way may still leave the header behind.
  created_ = true;
  return true;
}

bool Scratch_Image::create(uint64_t size) {
  return adopt() &&
         run_rbd(conf_, {"create", "--size", std::to_string(size) + "B", qualified_name()},
                 nullptr);
}

bool Scratch_Image::fill(uint64_t size) { return bench_writes(4u << 20, size, "seq"); }

bool Scratch_Image::scatter(uint64_t io_size, uint64_t count) {
  return bench_writes(io_size, io_size * count, "rand");
}

bool Scratch_Image::bench_writes(uint64_t io_size, uint64_t total, const char* pattern) {
  return run_rbd(
      conf_,
      {"bench", "--io-type", "write", "--io-size", std::to_string(io_size) + "B", "--io-total",
       std::to_string(total) + "B", "--io-pattern", pattern, qualified_name()},
      nullptr);
}

bool Scratch_Image::snapshot(const std::string& snap) {
  return run_rbd(conf_, {"snap", "create", "--no-progress", qualified_name() + "@" + snap},
                 nullptr);
}

}  // namespace cephbench
