#include "utils/agent/oceanstor/dto/snapshot.h"

#include <ace/Log_Msg.h>

#include "framework/json/extract.h"
#include "utils/agent/oceanstor/dto/record_reading.h"

namespace oceanstor {

bool Snapshot::operator<<(const json_spirit::Value& json) {
  return read_or_report(
      [&] {
        const json_spirit::JSON_Pointer_Extractor ex(json);
        ex.extract("/data/TYPE", type, true);
        ex.extract("/data/EXPOSEDTOINITIATOR", exposed_to_initiator, true);
        ex.extract("/data/ID", id, true);
        ex.extract("/data/NAME", name, true);
        ex.extract("/data/WWN", wwn, true);
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR,
                   ACE_TEXT("Unexpected exception occurred while parse OceanStor snapshot, %s.\n"),
                   what));
      });
}

}  // namespace oceanstor
