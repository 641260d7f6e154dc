#include "utils/agent/oceanstor/dto/bitmap.h"

#include <ace/Log_Msg.h>

#include "framework/json/extract.h"
#include "utils/agent/oceanstor/dto/record_reading.h"

namespace oceanstor {

void Bitmap::clear() {
  bitmap.clear();
  lun_id.clear();
}

bool Bitmap::operator<<(const json_spirit::Value& json) {
  return read_or_report(
      [&] {
        const json_spirit::JSON_Pointer_Extractor ex(json);
        ex.extract("/data/CHUNKBITMAP", bitmap, true);
        ex.extract("/data/LUNID", lun_id, true);
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected exception occurred while parse bitmap info, %s\n"),
                   what));
      });
}

}  // namespace oceanstor
