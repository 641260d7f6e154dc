// librados and librbd fill a list or a name only when given room enough; otherwise they
// answer -ERANGE, most with the size they need. The list may grow between two calls
// (another client adds to it), so the call is made again with the room the last answer
// asked for, a few times at most. Internal to the Ceph code.
#pragma once

#include <cerrno>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace ceph {

constexpr int SIZING_ROUNDS = 4;

// `call` grows its buffers to what its last answer asked for, calls the library and
// returns its result; made again while that is -ERANGE, SIZING_ROUNDS times at most.
template <typename Call>
int call_with_room(Call call) {
  int r = -ERANGE;
  for (int round = 0; round < SIZING_ROUNDS && r == -ERANGE; ++round) r = call();
  return r;
}

// `buffer` grown to `asked` elements when that is more; `asked` then says its size.
template <typename T>
T* room_for(std::vector<T>& buffer, size_t& asked) {
  if (asked > buffer.size()) buffer.resize(asked);
  asked = buffer.size();
  return buffer.data();
}

// The strings of consecutive NUL-terminated ones in [begin, end), never read past `end`;
// an empty one ends the run.
std::vector<std::string> split_nul_terminated(const char* begin, const char* end);

// A key/value listing (rbd_metadata_list, rbd_pool_metadata_list) made with room enough,
// its keys and values paired in order into `out`. The library's result.
using Key_Value_Lister =
    std::function<int(char* keys, size_t* keys_len, char* values, size_t* values_len)>;
int list_key_values(const Key_Value_Lister& list, std::map<std::string, std::string>& out);

}  // namespace ceph
