#include "utils/agent/oceanstor/dto/lun.h"

#include <ace/Log_Msg.h>

#include "framework/json/extract.h"
#include "framework/json/reader.h"
#include "framework/json/writer.h"
#include "utils/agent/oceanstor/dto/record_reading.h"

namespace oceanstor {

namespace {

// The array writes "--" where a LUN has no such WWN.
void drop_placeholder(std::string& wwn) {
  if (wwn == "--") wwn.clear();
}

// "ASSOCIATEMETADATA" is JSON packed into a string, e.g. "{\"HostLUNID\":1}". Text that is
// not JSON is ignored; JSON without "HostLUNID" throws.
void read_host_lun_id(const std::string& metadata, int& host_lun_id) {
  json_spirit::Value parsed;
  if (metadata.empty() || !json_spirit::read(metadata, parsed)) return;
  json_spirit::extract_member(parsed, "HostLUNID", host_lun_id);
}

}  // namespace

bool LUN::load(const json_spirit::Value& json, const char* prefix) {
  return read_or_report(
      [&] {
        const bool nested = prefix != nullptr && *prefix != '\0';
        const json_spirit::Value& node = nested ? json_spirit::get_member(json, prefix) : json;
        const json_spirit::JSON_Pointer_Extractor ex(node);
        std::string metadata;
        ex.extract("/TYPE", type, true);
        ex.extract("/ASSOCIATEMETADATA", metadata, false);
        ex.extract("/EXPOSEDTOINITIATOR", exposed_to_initiator, true);
        ex.extract("/ID", id, true);
        ex.extract("/NAME", name, true);
        ex.extract("/WWN", wwn, true);
        ex.extract("/remoteLunWwn", remote_lun_wwn, false);
        ex.extract("/takeOverLunWwn", takeover_lun_wwn, false);
        drop_placeholder(remote_lun_wwn);
        drop_placeholder(takeover_lun_wwn);
        read_host_lun_id(metadata, host_lun_id);
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR,
                   ACE_TEXT("Unexpected exception occurred while parse OceanStor LUN, error: %s\n json: %s.\n"),
                   what, json_spirit::JSON_Redacted_Dump(json).c_str()));
      });
}

bool operator<<(std::vector<LUN>& luns, const json_spirit::Value& json) {
  return read_or_report(
      [&] {
        trans_array_or_throw(luns, json_spirit::get_member(json, "data").get_array());
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR,
                   ACE_TEXT("Unexpected exception occurred while parse LUNs, error: %s\n json: %s.\n"),
                   what, json_spirit::JSON_Redacted_Dump(json).c_str()));
      });
}

}  // namespace oceanstor
