#include "utils/agent/ceph/sized_call.h"

#include <algorithm>
#include <cstring>

namespace ceph {

std::vector<std::string> split_nul_terminated(const char* begin, const char* end) {
  std::vector<std::string> out;
  for (const char* at = begin; at < end && *at != '\0';) {
    const size_t len = strnlen(at, static_cast<size_t>(end - at));
    out.emplace_back(at, len);
    at += len + 1;
  }
  return out;
}

int list_key_values(const Key_Value_Lister& list, std::map<std::string, std::string>& out) {
  std::vector<char> keys, values;
  size_t keys_len = 1024, values_len = 4096;
  const int r = call_with_room([&] {
    char* k = room_for(keys, keys_len);
    return list(k, &keys_len, room_for(values, values_len), &values_len);
  });
  if (r < 0) return r;
  // Keys end at an empty one; a value may be empty, so values are walked one per key.
  const char* value = values.data();
  const char* values_end = value + std::min(values_len, values.size());
  for (std::string& key :
       split_nul_terminated(keys.data(), keys.data() + std::min(keys_len, keys.size()))) {
    if (value >= values_end) break;
    const size_t len = strnlen(value, static_cast<size_t>(values_end - value));
    out[std::move(key)].assign(value, len);
    value += len + 1;
  }
  return r;
}

}  // namespace ceph
