// Runs of set bits in an array bitmap, as chunk extents.
#include <ace/Log_Msg.h>

#include <boost/dynamic_bitset.hpp>

#include "utils/agent/oceanstor/oceanstor_client.h"

namespace oceanstor {

unsigned long parse_change_blocks(const std::basic_string<unsigned char>& bitmap, unsigned long start,
                                  std::vector<Block>& blocks) {
  // Built from bytes, the bitset's bit i is bit i % 8 of byte i / 8, least significant
  // first: the array's own order.
  const boost::dynamic_bitset<unsigned char> bits(bitmap.begin(), bitmap.end());
  using Size = boost::dynamic_bitset<unsigned char>::size_type;
  unsigned long total = 0;
  Size first = bits.find_first();
  while (first != boost::dynamic_bitset<unsigned char>::npos) {
    Size last = first;
    Size next = bits.find_next(last);
    while (next == last + 1) {
      last = next;
      next = bits.find_next(last);
    }
    const unsigned long run = last - first + 1;
    blocks.emplace_back(start + first, run);
    total += run;
    first = next;
  }
  ACE_DEBUG((LM_INFO, ACE_TEXT("Total trunk blocks: %B.\n"), static_cast<size_t>(total)));
  return total;
}

}  // namespace oceanstor
