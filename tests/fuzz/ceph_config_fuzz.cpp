// Cluster configuration text is handed in by the caller: any text must give an option
// map (maybe empty) without throwing, the same map every time, with string values.
#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/fuzz/quiet_log.h"
#include "utils/agent/ceph/ceph_config.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  au_fuzz::quiet_log();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const ceph::Ceph_Config config(text);
  if (static_cast<bool>(config) == config.options().empty()) __builtin_trap();
  for (const auto& option : config.options()) {
    if (option.second.type() != json_spirit::str_type) __builtin_trap();
  }
  const ceph::Ceph_Config again(text);
  if (again.options() != config.options()) __builtin_trap();
  return 0;
}
