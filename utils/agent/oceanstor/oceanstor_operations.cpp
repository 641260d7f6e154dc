// LUN, snapshot, lun-group and host operations of OceanStor_Client.
#include <ace/Log_Msg.h>

#include "framework/base/exponential_backoff.h"
#include "framework/base/snprintf_t.h"
#include "framework/json/writer.h"
#include "framework/log/check.h"
#include "utils/agent/oceanstor/dto/lun_attach_request.h"
#include "utils/agent/oceanstor/dto/lun_detach_request.h"
#include "utils/agent/oceanstor/dto/object_type.h"
#include "utils/agent/oceanstor/dto/snapshot_attach_request.h"
#include "utils/agent/oceanstor/dto/snapshot_detach_request.h"
#include "utils/agent/oceanstor/oceanstor_client.h"

namespace oceanstor {

namespace {

constexpr const char* SNAPSHOT_URI = "/deviceManager/rest/%s/snapshot/%s";
constexpr const char* SNAPSHOT_ASSOCIATE_URI =
    "/deviceManager/rest/%s/snapshot/associate?ASSOCIATEOBJTYPE=%d&ASSOCIATEOBJID=%s&filter=ID:%s";
constexpr const char* LUN_URI = "/deviceManager/rest/%s/lun/%s";
constexpr const char* LUN_ASSOCIATE_URI =
    "/deviceManager/rest/%s/lun/associate?ASSOCIATEOBJTYPE=%d&ASSOCIATEOBJID=%s&filter=ID:%s";
constexpr const char* LUN_GROUP_ASSOCIATE_URI = "/deviceManager/rest/%s/lungroup/associate";
constexpr const char* HOST_ASSOCIATE_URI = "/deviceManager/rest/%s/host/associate?ASSOCIATEOBJTYPE=%s&ASSOCIATEOBJID=%s";
constexpr const char* HOST_LINK_URI = "/deviceManager/rest/%s/host_link?INITIATOR_TYPE=%s&PARENTID=%s";
constexpr const char* FC_INITIATOR_TYPE = "223";

// Detach polling: 1, 2, 4, 8, 16 seconds between reads.
constexpr unsigned DETACH_SLOT_SECONDS = 1;
constexpr unsigned DETACH_POLLS = 5;
constexpr unsigned DETACH_CAP_SECONDS = 60;

// Array error codes the detach operations tell apart.
constexpr int ERROR_NOT_IN_LUN_GROUP = 1077948996;  // 0x40403244
constexpr int ERROR_OBJECT_NOT_EXIST = 1077937880;  // 0x404006D8

template <class... Args>
std::string format_line(const char* fmt, Args... args) {
  return snprintf_t<256>(fmt, args...).c_str();
}

}  // namespace

bool OceanStor_Client::get_snapshot(const std::string& snap_id, Snapshot& snap) {
  if (AU_IS_EMPTY(auth_.device_id) || AU_IS_EMPTY(snap_id)) return false;
  HTTP_Request req(HTTP_GET,
                   snprintf_t<256>(SNAPSHOT_URI, url_id(auth_.device_id).c_str(), url_id(snap_id).c_str()), false);
  json_spirit::Value reply;
  if (!get_reply(req, reply, format_line("Failed to get OceanStor snapshot '%s' info.\n", snap_id.c_str()),
                 "Failed to get OceanStor snapshot"))
    return false;
  return snap << reply;
}

bool OceanStor_Client::get_snapshot(const std::string& host_id, const std::string& snap_id, Snapshot& snap) {
  if (AU_IS_EMPTY(auth_.device_id) || AU_IS_EMPTY(snap_id)) return false;
  HTTP_Request req(HTTP_GET,
                   snprintf_t<256>(SNAPSHOT_ASSOCIATE_URI, url_id(auth_.device_id).c_str(), HOST_OBJECT_TYPE,
                                   url_id(host_id).c_str(), url_id(snap_id).c_str()),
                   true);
  json_spirit::Value reply;
  if (!get_reply(req, reply, format_line("Failed to get OceanStor snapshot '%s' info.\n", snap_id.c_str()),
                 "Failed to get OceanStor snapshot"))
    return false;
  return snap << reply;
}

bool OceanStor_Client::is_snap_attached(const std::string& snap_id) {
  if (AU_IS_EMPTY(snap_id)) return false;
  Snapshot snap;
  return get_snapshot(snap_id, snap) && snap.exposed_to_initiator == "true";
}

bool OceanStor_Client::get_lun(const std::string& lun_id, LUN& lun) {
  if (AU_IS_EMPTY(auth_.device_id) || AU_IS_EMPTY(lun_id)) return false;
  HTTP_Request req(HTTP_GET, snprintf_t<256>(LUN_URI, url_id(auth_.device_id).c_str(), url_id(lun_id).c_str()),
                   false);
  json_spirit::Value reply;
  if (!get_reply(req, reply, format_line("Failed to get OceanStor lun '%s' info.\n", lun_id.c_str()),
                 "Failed to get OceanStor lun"))
    return false;
  return lun.load(reply, "data");
}

bool OceanStor_Client::get_snap_luns(const std::string& host_id, const std::string& snap_id,
                                     std::vector<LUN>& luns) {
  if (AU_IS_EMPTY(auth_.device_id) || AU_IS_EMPTY(host_id) || AU_IS_EMPTY(snap_id)) return false;
  HTTP_Request req(HTTP_GET,
                   snprintf_t<256>(SNAPSHOT_ASSOCIATE_URI, url_id(auth_.device_id).c_str(), HOST_OBJECT_TYPE,
                                   url_id(host_id).c_str(), url_id(snap_id).c_str()),
                   true);
  json_spirit::Value reply;
  if (!get_reply(req, reply, format_line("Failed to get OceanStor snapshop lun '%s' info.\n", snap_id.c_str()),
                 "Failed to get OceanStor snapshot lun"))
    return false;
  return luns << reply;
}

bool OceanStor_Client::get_luns(const std::string& host_id, const std::string& lun_id, std::vector<LUN>& luns) {
  if (AU_IS_EMPTY(auth_.device_id) || AU_IS_EMPTY(lun_id)) return false;
  HTTP_Request req(HTTP_GET,
                   snprintf_t<256>(LUN_ASSOCIATE_URI, url_id(auth_.device_id).c_str(), HOST_OBJECT_TYPE,
                                   url_id(host_id).c_str(), url_id(lun_id).c_str()),
                   true);
  json_spirit::Value reply;
  if (!get_reply(req, reply, format_line("Failed to get OceanStor lun '%s' info.\n", lun_id.c_str()),
                 "Failed to get OceanStor lun"))
    return false;
  return luns << reply;
}

bool OceanStor_Client::attach(const json_spirit::Value& body, const char* failure_text) {
  HTTP_Request req(HTTP_POST, snprintf_t<128>(LUN_GROUP_ASSOCIATE_URI, url_id(auth_.device_id).c_str()), false);
  json_spirit::Value reply;
  if (!send_request(req, &body, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("%C"), failure_text));
    return false;
  }
  if (!no_error(reply)) return print_error(failure_text, req, &body, &reply);
  return true;
}

bool OceanStor_Client::attach_snapshot(const std::string& snap_id, const std::string& lun_group_id) {
  if (AU_IS_EMPTY(snap_id) || AU_IS_EMPTY(lun_group_id) || AU_IS_EMPTY(auth_.device_id)) return false;
  json_spirit::Value body;
  if (!(Snapshot_Attach_Request{lun_group_id, snap_id} >> body)) return false;
  return attach(body, "Failed to attach OceanStor snapshot to lun group");
}

bool OceanStor_Client::attach_lun(const std::string& lun_id, const std::string& lun_group_id) {
  if (AU_IS_EMPTY(lun_id) || AU_IS_EMPTY(lun_group_id) || AU_IS_EMPTY(auth_.device_id)) return false;
  json_spirit::Value body;
  if (!(LUN_Attach_Request{lun_group_id, lun_id} >> body)) return false;
  return attach(body, "Failed to attach OceanStor lun to lun group");
}

bool OceanStor_Client::detach_snapshot(const std::string& snap_id, const std::string& lun_group_id) {
  if (AU_IS_EMPTY(snap_id) || AU_IS_EMPTY(lun_group_id) || AU_IS_EMPTY(auth_.device_id)) return false;
  json_spirit::Value body;
  if (!(Snapshot_Detach_Request{lun_group_id, snap_id} >> body)) return false;
  HTTP_Request req(HTTP_DELETE, snprintf_t<128>(LUN_GROUP_ASSOCIATE_URI, url_id(auth_.device_id).c_str()), false);
  json_spirit::Value reply;
  if (!send_request(req, &body, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to detach OceanStor snapshot from lun group, req body: %C\n"),
               json_spirit::JSON_Redacted_Dump(body).c_str()));
    return false;
  }
  if (!no_error(reply) && last_error_.code != ERROR_NOT_IN_LUN_GROUP)
    return print_error("Failed to detach OceanStor snapshot from lun group", req, &body, &reply);
  if (last_error_.code == ERROR_NOT_IN_LUN_GROUP) return true;
  return poll_until_snapshot_unexposed(snap_id);
}

bool OceanStor_Client::detach_lun(const std::string& lun_id, const std::string& lun_group_id) {
  if (AU_IS_EMPTY(lun_id) || AU_IS_EMPTY(lun_group_id) || AU_IS_EMPTY(auth_.device_id)) return false;
  json_spirit::Value body;
  if (!(LUN_Detach_Request{lun_group_id, lun_id} >> body)) return false;
  HTTP_Request req(HTTP_DELETE, snprintf_t<128>(LUN_GROUP_ASSOCIATE_URI, url_id(auth_.device_id).c_str()), false);
  json_spirit::Value reply;
  if (!send_request(req, &body, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to detach OceanStor lun from lun group")));
    return false;
  }
  // Unlike a snapshot detach, only "no such LUN" fails here; other array errors
  // are left to the polling below to judge.
  if (!no_error(reply) && last_error_.code == ERROR_OBJECT_NOT_EXIST)
    return print_error("Failed to detach OceanStor lun from lun group", req, &body, &reply);
  if (last_error_.code == ERROR_NOT_IN_LUN_GROUP) return true;
  return poll_until_lun_unexposed(lun_id);
}

bool OceanStor_Client::poll_until_snapshot_unexposed(const std::string& snap_id) {
  Snapshot snap;
  for (const unsigned delay : exponential_backoff(DETACH_SLOT_SECONDS, DETACH_POLLS, DETACH_CAP_SECONDS, false)) {
    const bool read = get_snapshot(snap_id, snap);
    if (!read && last_error_.code == ERROR_OBJECT_NOT_EXIST) return true;
    if (snap.exposed_to_initiator == "false") return true;
    sleep_seconds(delay);
  }
  return false;
}

bool OceanStor_Client::poll_until_lun_unexposed(const std::string& lun_id) {
  LUN lun;
  for (const unsigned delay : exponential_backoff(DETACH_SLOT_SECONDS, DETACH_POLLS, DETACH_CAP_SECONDS, false)) {
    const bool read = get_lun(lun_id, lun);
    if (!read && last_error_.code == ERROR_OBJECT_NOT_EXIST) return true;
    if (lun.exposed_to_initiator == "false") return true;
    sleep_seconds(delay);
  }
  return false;
}

bool OceanStor_Client::get_snapshot_belong_hosts(const std::string& snap_id, std::vector<Host>& hosts) {
  if (AU_IS_EMPTY(auth_.device_id) || AU_IS_EMPTY(snap_id)) return false;
  HTTP_Request req(HTTP_GET,
                   snprintf_t<256>(HOST_ASSOCIATE_URI, url_id(auth_.device_id).c_str(), "27", url_id(snap_id).c_str()),
                   true);
  json_spirit::Value reply;
  if (!get_reply(req, reply, format_line("Failed to get snapshot '%s' belong hosts.\n", snap_id.c_str()),
                 "Failed to get snapshot belong hosts"))
    return false;
  return hosts << reply;
}

bool OceanStor_Client::get_lun_belong_hosts(const std::string& lun_id, std::vector<Host>& hosts) {
  if (AU_IS_EMPTY(auth_.device_id) || AU_IS_EMPTY(lun_id)) return false;
  HTTP_Request req(HTTP_GET,
                   snprintf_t<256>(HOST_ASSOCIATE_URI, url_id(auth_.device_id).c_str(), "11", url_id(lun_id).c_str()),
                   true);
  json_spirit::Value reply;
  if (!get_reply(req, reply, format_line("Failed to get lun '%s' belong hosts.\n", lun_id.c_str()),
                 "Failed to get lun belong hosts"))
    return false;
  return hosts << reply;
}

bool OceanStor_Client::get_fc_host_links(const std::string& host_id, std::vector<Host_Link>& links) {
  if (AU_IS_EMPTY(auth_.device_id) || AU_IS_EMPTY(host_id)) return false;
  HTTP_Request req(HTTP_GET,
                   snprintf_t<256>(HOST_LINK_URI, url_id(auth_.device_id).c_str(), FC_INITIATOR_TYPE,
                                   url_id(host_id).c_str()),
                   true);
  json_spirit::Value reply;
  if (!get_reply(req, reply, format_line("Failed to get fc host links, host: '%s'.\n", host_id.c_str()),
                 "Failed to get fc host links"))
    return false;
  return links << reply;
}

}  // namespace oceanstor
