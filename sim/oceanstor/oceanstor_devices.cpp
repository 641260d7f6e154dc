// The host's view of mapped objects: one sparse file per mapped LUN or snapshot in the
// device directory, kept in step with the model's chunks.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "sim/oceanstor/oceanstor_sim.h"

namespace au_sim {

namespace {

constexpr uint64_t DEFAULT_CHUNK_BYTES = 64 * 1024;
constexpr uint64_t MAX_CHUNK_KIB = 1024 * 1024;

bool write_all(int fd, const std::string& bytes, uint64_t offset) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::pwrite(fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// Reads `length` bytes at `offset`; what lies past the end of the file reads as zeros.
std::string read_zero_filled(int fd, uint64_t offset, uint64_t length) {
  std::string out(length, '\0');
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t n = ::pread(fd, &out[done], out.size() - done, static_cast<off_t>(offset + done));
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  return out;
}

}  // namespace

void OceanStor_Sim::set_device_dir(const std::string& dir) {
  std::lock_guard<std::mutex> lock(mutex_);
  device_dir_ = dir;
}

std::string OceanStor_Sim::wwn(const std::string& object_id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto v = volumes_.find(object_id);
  return v == volumes_.end() ? std::string() : v->second.wwn;
}

std::string OceanStor_Sim::volume_bytes(const std::string& object_id, uint64_t offset, uint64_t length) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = volumes_.find(object_id);
  if (it == volumes_.end() || offset >= it->second.size) return std::string();
  Volume& v = it->second;
  sync_from_device(v);
  length = std::min(length, v.size - offset);
  const uint64_t chunk = chunk_bytes();
  std::string out;
  out.reserve(length);
  for (uint64_t at = offset; at < offset + length;) {
    const uint64_t index = at / chunk;
    const std::string bytes = chunk_bytes_of(v, index);
    const uint64_t from = at - index * chunk;
    const uint64_t take = std::min<uint64_t>(bytes.size() - from, offset + length - at);
    out.append(bytes, from, take);
    at += take;
  }
  return out;
}

uint64_t OceanStor_Sim::chunk_bytes() const {
  const std::string& text = chunk_size_text_;
  if (text.empty() || text.size() > 7 || text.find_first_not_of("0123456789") != std::string::npos)
    return DEFAULT_CHUNK_BYTES;
  const uint64_t kib = std::strtoull(text.c_str(), nullptr, 10);
  return kib == 0 || kib > MAX_CHUNK_KIB ? DEFAULT_CHUNK_BYTES : kib * 1024;
}

std::string OceanStor_Sim::device_path(const Volume& v) const {
  std::string name = "wwn-0x" + v.wwn;
  std::transform(name.begin(), name.end(), name.begin(), [](char c) { return static_cast<char>(std::tolower(c)); });
  return device_dir_ + "/" + name;
}

// The chunk's bytes as the host reads them: its content repeated to fill the chunk (cut at
// the object's end), zeros when unwritten.
std::string OceanStor_Sim::chunk_bytes_of(const Volume& v, uint64_t chunk) const {
  const uint64_t size = chunk_bytes();
  const uint64_t start = chunk * size;
  if (start >= v.size) return std::string();
  std::string out(std::min(size, v.size - start), '\0');
  const auto it = v.chunks.find(chunk);
  if (it == v.chunks.end() || it->second.empty()) return out;
  const std::string& content = it->second;
  for (std::size_t i = 0; i < out.size(); i += content.size())
    out.replace(i, std::min(content.size(), out.size() - i), content, 0, std::min(content.size(), out.size() - i));
  return out;
}

void OceanStor_Sim::create_device(Volume& v) {
  if (device_dir_.empty() || v.device) return;
  const std::string path = device_path(v);
  // Written aside and renamed, so the host never sees a half-filled device.
  const std::string aside = device_dir_ + "/.aside-" + v.wwn;
  const int fd = ::open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return;
  bool ok = ::ftruncate(fd, static_cast<off_t>(v.size)) == 0;
  for (const auto& chunk : v.chunks) {
    if (!ok) break;
    if (chunk.second.empty() || chunk.first * chunk_bytes() >= v.size) continue;
    ok = write_all(fd, chunk_bytes_of(v, chunk.first), chunk.first * chunk_bytes());
  }
  ok = ::close(fd) == 0 && ok;
  if (ok && ::rename(aside.c_str(), path.c_str()) == 0) {
    v.device = true;
  } else {
    ::unlink(aside.c_str());
  }
}

void OceanStor_Sim::remove_device(Volume& v) {
  if (!v.device) return;
  sync_from_device(v);
  ::unlink(device_path(v).c_str());
  v.device = false;
}

// Takes the bytes of a mapped LUN's file into its chunks. Only the chunks the model holds
// and those where the file has data are read, so the cost follows what was written.
void OceanStor_Sim::sync_from_device(Volume& v) {
  if (!v.device || v.snapshot) return;
  const int fd = ::open(device_path(v).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  const uint64_t size = chunk_bytes();
  std::set<uint64_t> touched;
  for (const auto& chunk : v.chunks) touched.insert(chunk.first);
  off_t at = 0;
  while (static_cast<uint64_t>(at) < v.size) {
    const off_t data = ::lseek(fd, at, SEEK_DATA);
    if (data < 0) break;  // no data after `at` (ENXIO)
    off_t hole = ::lseek(fd, data, SEEK_HOLE);
    if (hole < 0) hole = static_cast<off_t>(v.size);
    const uint64_t end = std::min<uint64_t>(static_cast<uint64_t>(hole), v.size);
    for (uint64_t c = static_cast<uint64_t>(data) / size; c * size < end; ++c) touched.insert(c);
    at = hole;
  }
  for (const uint64_t c : touched) {
    if (c * size >= v.size) continue;
    const std::string bytes = read_zero_filled(fd, c * size, std::min(size, v.size - c * size));
    if (bytes == chunk_bytes_of(v, c)) continue;  // unchanged: the content stays as written
    if (bytes.find_first_not_of('\0') == std::string::npos) {
      v.chunks.erase(c);
    } else {
      v.chunks[c] = bytes;
    }
  }
  ::close(fd);
}

void OceanStor_Sim::write_device_chunk(const Volume& v, uint64_t chunk) {
  if (!v.device || chunk * chunk_bytes() >= v.size) return;
  const int fd = ::open(device_path(v).c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return;
  write_all(fd, chunk_bytes_of(v, chunk), chunk * chunk_bytes());
  ::close(fd);
}

}  // namespace au_sim
