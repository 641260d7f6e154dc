// The final image of a chain as one list of segments: every byte of [0, image size) once,
// from the newest piece that holds it, or zeros (zero records, and bytes no piece of the
// chain holds: a grown image's untouched tail). A restore writes each segment once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/base/api.h"
#include "framework/chain/piece_chain.h"

struct AGENTUTIL_API Chain_Segment {
  uint64_t offset = 0;
  uint64_t length = 0;
  bool zeros = false;
  // For data: the link (index into Piece_Chain::links()), its record, and where in the
  // record's plain bytes the segment starts.
  size_t link = 0;
  size_t record = 0;
  uint64_t record_offset = 0;
};

// In image order, without gaps or overlap, neighbouring zero segments merged.
AGENTUTIL_API std::vector<Chain_Segment> plan_chain(const Piece_Chain& chain);
