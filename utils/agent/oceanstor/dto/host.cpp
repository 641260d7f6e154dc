#include "utils/agent/oceanstor/dto/host.h"

#include <ace/Log_Msg.h>

#include <type_traits>

#include "framework/json/extract.h"
#include "framework/json/writer.h"
#include "utils/agent/oceanstor/dto/record_reading.h"

namespace oceanstor {

static_assert(std::is_nothrow_move_constructible_v<Host>, "hosts are kept in vectors");

bool Host::operator<<(const json_spirit::Value& json) {
  return read_or_report(
      [&] {
        json_spirit::extract_member(json, "TYPE", type);
        json_spirit::extract_member(json, "ID", id);
        json_spirit::extract_member(json, "NAME", name);
        json_spirit::extract_member(json, "IP", ip);
        json_spirit::extract_member(json, "HEALTHSTATUS", health_status);
        json_spirit::extract_member(json, "RUNNINGSTATUS", running_status);
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected exception while parse host error: %s\n json: %s.\n"),
                   what, json_spirit::JSON_Redacted_Dump(json).c_str()));
      });
}

bool operator<<(std::vector<Host>& hosts, const json_spirit::Value& json) {
  return read_or_report(
      [&] {
        trans_array_or_throw(hosts, json_spirit::get_member(json, "data").get_array());
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected exception while parse hosts error: %s\n json: %s.\n"),
                   what, json_spirit::JSON_Redacted_Dump(json).c_str()));
      });
}

}  // namespace oceanstor
