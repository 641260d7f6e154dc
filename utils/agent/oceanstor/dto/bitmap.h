// A changed-block bitmap of one LUN segment, as hexadecimal text.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/json/value.h"

namespace oceanstor {

struct AGENTUTIL_API Bitmap {
  std::string bitmap;  // hexadecimal text, one bit per chunk
  std::string lun_id;

  void clear();
  // Reads "/data/CHUNKBITMAP" and "/data/LUNID", both required.
  bool operator<<(const json_spirit::Value& json);
};

}  // namespace oceanstor
