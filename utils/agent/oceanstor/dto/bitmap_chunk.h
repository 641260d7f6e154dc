// The granularity of a LUN's changed-block bitmaps, as the array reports it.
#pragma once

#include <cstdint>
#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API Bitmap_Chunk {
  uint32_t chunk_size = 0;  // the array's unit, passed back unchanged
  std::string lun_id;

  // Reads "/data/BITMAPCHUNKSIZE" (a decimal string) and "/data/LUNID". A size that is
  // 0 or not a decimal number within 32 bits gives chunk_size 0 and false.
  bool operator<<(const json_spirit::Value& json);
};

}  // namespace oceanstor
