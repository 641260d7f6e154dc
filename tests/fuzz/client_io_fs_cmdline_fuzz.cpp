// Command lines of clntiofs_i processes are outside text: whatever the parser takes
// out of one must be a piece of it.
#include <cstddef>
#include <cstdint>
#include <string>

#include "utils/agent/tencent/client_io_fs_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string line(reinterpret_cast<const char*>(data), size);
  std::string url, mount_dir;
  if (!client_io_fs::parse_command_line(line, url, mount_dir)) return 0;
  if (url.find("://") == std::string::npos || line.find(url) == std::string::npos ||
      mount_dir.empty() || line.find(mount_dir) == std::string::npos)
    __builtin_trap();
  return 0;
}
