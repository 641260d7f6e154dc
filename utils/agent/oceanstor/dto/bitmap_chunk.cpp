#include "utils/agent/oceanstor/dto/bitmap_chunk.h"

#include <ace/Log_Msg.h>

#include <charconv>

#include "framework/json/extract.h"
#include "framework/json/writer.h"
#include "utils/agent/oceanstor/dto/record_reading.h"

namespace oceanstor {

namespace {

// Digits only: no sign, blank or trailing text; 0 for anything else.
uint32_t parse_chunk_size(const std::string& text) {
  uint32_t size = 0;
  const auto r = std::from_chars(text.data(), text.data() + text.size(), size);
  if (r.ec != std::errc() || r.ptr != text.data() + text.size()) return 0;
  return size;
}

}  // namespace

bool Bitmap_Chunk::operator<<(const json_spirit::Value& json) {
  std::string size_text;
  const bool read = read_or_report(
      [&] {
        const json_spirit::JSON_Pointer_Extractor ex(json);
        ex.extract("/data/BITMAPCHUNKSIZE", size_text, true);
        ex.extract("/data/LUNID", lun_id, true);
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR,
                   ACE_TEXT("Unexpected exception occurred while parse bitmap chunk info, %s\n json: %s\n"),
                   what, json_spirit::JSON_Redacted_Dump(json).c_str()));
      });
  chunk_size = read ? parse_chunk_size(size_text) : 0;
  if (read && chunk_size == 0) {
    // A zero chunk would make every bitmap request meaningless; say why it was refused.
    ACE_ERROR((LM_ERROR, ACE_TEXT("Invalid OceanStor bitmap chunk size '%s' of lun '%s'.\n"),
               size_text.c_str(), lun_id.c_str()));
  }
  return chunk_size != 0;
}

}  // namespace oceanstor
