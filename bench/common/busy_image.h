// The image the backup and restore benchmarks move: 1 GiB of image-like content (1 MiB
// stripes cycling through zeros, compressible text and random bytes), snapshot s1; then a
// day's churn of 4096 random 4 KiB writes and one 64 MiB stretch rewritten, snapshot s2.
// Made with the rbd tool (import, bench) so that neither side gets it for free.
#pragma once

#include <cstdint>
#include <string>

#include "bench/common/scratch_image.h"

namespace cephbench {

constexpr uint64_t BUSY_IMAGE_SIZE = 1ull << 30;

// `scratch_dir` holds the raw content file while it is imported.
bool make_busy_image(Scratch_Image& image, const std::string& scratch_dir);

// The sandbox's conf ($AGENTUTIL_CEPH_CONF), or null after saying on stderr that
// `program` cannot run without it.
const char* sandbox_conf(const char* program);

// A new private directory under /tmp for one run's files.
std::string scratch_dir(const char* prefix);

// Removes `pool/name` and its snapshots; quiet when it does not exist.
void remove_image(const std::string& conf, const std::string& pool, const std::string& name);

// The size of a file, 0 when it cannot be read.
uint64_t file_size(const std::string& path);

}  // namespace cephbench
