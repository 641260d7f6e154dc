#include "bench/ceph_diff/rbd_diff_json.h"

#include <cstdio>
#include <exception>

#include "framework/json/reader.h"
#include "framework/json/value.h"
#include "utils/agent/ceph/changed_blocks.h"

namespace cephbench {

namespace {

// One entry's offset and length; the typed getters throw on a wrong type, which the
// caller turns into a refusal.
Block read_entry(const json_spirit::Value& entry) {
  const json_spirit::Object& obj = entry.get_obj();
  return Block(obj.at("offset").get_uint64(), obj.at("length").get_uint64());
}

}  // namespace

bool read_rbd_diff(const std::string& text, uint64_t chunk, Blocks& blocks) {
  json_spirit::Value doc;
  std::string error;
  if (!json_spirit::read(text, doc, error)) {
    std::fprintf(stderr, "rbd diff output is not JSON: %s\n", error.c_str());
    return false;
  }
  if (doc.type() != json_spirit::array_type) {
    std::fprintf(stderr, "rbd diff output is not a list\n");
    return false;
  }
  try {
    for (const json_spirit::Value& entry : doc.get_array()) {
      const Block extent = read_entry(entry);
      blocks.push_back(ceph::chunk_aligned_block(extent.offset, extent.length, chunk));
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "unexpected entry in rbd diff output: %s\n", e.what());
    return false;
  }
  ceph::sort_and_merge_blocks(blocks);
  return true;
}

uint64_t total_bytes(const Blocks& blocks) {
  uint64_t n = 0;
  for (const Block& b : blocks) n += b.length;
  return n;
}

}  // namespace cephbench
