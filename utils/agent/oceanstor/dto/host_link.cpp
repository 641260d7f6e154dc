#include "utils/agent/oceanstor/dto/host_link.h"

#include <ace/Log_Msg.h>

#include <type_traits>
#include <utility>

#include "framework/json/extract.h"
#include "framework/json/writer.h"
#include "utils/agent/oceanstor/dto/record_reading.h"

namespace oceanstor {

static_assert(std::is_nothrow_move_constructible_v<Host_Link>, "links are kept in vectors");

namespace {

const char HEALTH_NORMAL[] = "1";
const char RUNNING_LINK_UP[] = "10";
const char RUNNING_ONLINE[] = "27";

// Only such links are worth sending I/O over.
bool healthy_and_running(const Host_Link& link) {
  return link.health_status == HEALTH_NORMAL &&
         (link.running_status == RUNNING_LINK_UP || link.running_status == RUNNING_ONLINE);
}

}  // namespace

bool Host_Link::operator<<(const json_spirit::Value& json) {
  return read_or_report(
      [&] {
        json_spirit::extract_member(json, "TYPE", type);
        json_spirit::extract_member(json, "ID", id);
        json_spirit::extract_member(json, "INITIATOR_ID", initiator_id);
        json_spirit::extract_member(json, "INITIATOR_PORT_WWN", initiator_port_wwn);
        json_spirit::extract_member(json, "INITIATOR_TYPE", initiator_type);
        json_spirit::extract_member(json, "TARGET_ID", target_id);
        json_spirit::extract_member(json, "TARGET_PORT_WWN", target_port_wwn);
        json_spirit::extract_member(json, "TARGET_TYPE", target_type);
        json_spirit::extract_member(json, "HEALTHSTATUS", health_status);
        json_spirit::extract_member(json, "RUNNINGSTATUS", running_status);
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected exception while parse host json: %s.\n, %s\n"),
                   json_spirit::JSON_Redacted_Dump(json).c_str(), what));
      });
}

bool operator<<(std::vector<Host_Link>& links, const json_spirit::Value& json) {
  return read_or_report(
      [&] {
        for (const json_spirit::Value& element : json_spirit::get_member(json, "data").get_array()) {
          Host_Link link;
          if (!(link << element)) return false;
          if (healthy_and_running(link)) links.push_back(std::move(link));
        }
        return true;
      },
      [&](const char* what) {
        ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected exception while parse host links json, %s.\n"), what));
      });
}

}  // namespace oceanstor
