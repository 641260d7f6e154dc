#include "utils/agent/oceanstor/dto/error.h"

#include <ace/Log_Msg.h>

#include "framework/json/extract.h"
#include "framework/json/writer.h"
#include "utils/agent/oceanstor/dto/record_reading.h"

namespace oceanstor {

void Error::clear() {
  code = 0;
  description.clear();
  suggestion.clear();
}

bool Error::operator<<(const json_spirit::Value& json) {
  return read_or_report(
      [&] {
        const json_spirit::JSON_Pointer_Extractor ex(json);
        ex.extract("/error/code", code, true);
        ex.extract("/error/description", description, true);
        ex.extract("/error/suggestion", suggestion, false);
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR,
                   ACE_TEXT("Unexpected exception while occurred while parse error info, json: %s \n%s\n"),
                   json_spirit::JSON_Redacted_Dump(json).c_str(), what));
      });
}

}  // namespace oceanstor
