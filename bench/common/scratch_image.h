// An RBD image that exists only for one benchmark run, set up and torn down with the rbd
// tool. The destructor removes the image and its snapshots, so every way out of the run
// (failure, cancel) leaves the cluster as it was.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cephbench {

// `rbd -c <conf> <args...>`; see run_command for out.
bool run_rbd(const std::string& conf, const std::vector<std::string>& args, std::string* out);

class Scratch_Image {
 public:
  Scratch_Image(std::string conf, std::string pool, std::string name);
  ~Scratch_Image();
  Scratch_Image(const Scratch_Image&) = delete;
  Scratch_Image& operator=(const Scratch_Image&) = delete;

  // Refuses a name that is taken: the destructor removes only what this object made.
  bool create(uint64_t size);
  // For an image another command makes (rbd import): refuses a name that is taken, and
  // makes the image this object's to remove.
  bool adopt();
  // Writes every byte once, in 4 MiB requests, so each object holds data.
  bool fill(uint64_t size);
  // `count` writes of `io_size` bytes at random offsets.
  bool scatter(uint64_t io_size, uint64_t count);
  bool snapshot(const std::string& snap);

  const std::string& conf() const { return conf_; }
  const std::string& pool() const { return pool_; }
  const std::string& name() const { return name_; }
  // "pool/name".
  std::string qualified_name() const { return pool_ + "/" + name_; }

 private:
  bool name_taken(bool& taken) const;
  bool bench_writes(uint64_t io_size, uint64_t total, const char* pattern);

  std::string conf_;
  std::string pool_;
  std::string name_;
  bool created_ = false;
};

}  // namespace cephbench
