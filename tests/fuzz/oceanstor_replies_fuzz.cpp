// Array replies are JSON from the network. Every record reader gets the same reply; none
// may throw (an escaping exception aborts the run), and what they keep must obey their
// documented rules.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/json/reader.h"
#include "tests/fuzz/quiet_log.h"
#include "utils/agent/oceanstor/dto/bitmap.h"
#include "utils/agent/oceanstor/dto/bitmap_chunk.h"
#include "utils/agent/oceanstor/dto/error.h"
#include "utils/agent/oceanstor/dto/host.h"
#include "utils/agent/oceanstor/dto/host_link.h"
#include "utils/agent/oceanstor/dto/lun.h"
#include "utils/agent/oceanstor/dto/snapshot.h"

using namespace oceanstor;

namespace {

void read_single_records(const json_spirit::Value& reply) {
  Error error;
  error << reply;
  LUN lun, data_lun;
  lun << reply;
  data_lun.load(reply, "data");
  Host host;
  host << reply;
  Host_Link link;
  link << reply;
  Snapshot snapshot;
  snapshot << reply;
  Bitmap bitmap;
  bitmap.clear();
  bitmap << reply;
  Bitmap_Chunk chunk;
  if ((chunk << reply) != (chunk.chunk_size != 0)) __builtin_trap();
}

void read_lists(const json_spirit::Value& reply) {
  std::vector<LUN> luns;
  luns << reply;
  std::vector<Host> hosts;
  hosts << reply;
  std::vector<Host_Link> links;
  links << reply;
  for (const Host_Link& l : links) {
    if (l.health_status != "1" || (l.running_status != "10" && l.running_status != "27")) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  au_fuzz::quiet_log();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  json_spirit::Value reply;
  std::string error;
  if (!json_spirit::read(reinterpret_cast<const char*>(data), size, reply, error)) return 0;
  read_single_records(reply);
  read_lists(reply);
  return 0;
}
