#include "utils/agent/instance_helpers.h"

#include <ace/Log_Msg.h>

#include <exception>
#include <string>

#include "framework/http/host_manager.h"
#include "framework/http/upstream_json_restful_client.h"
#include "framework/log/check.h"
#include "utils/agent/catalog_helpers.h"
#include "utils/agent/http_query_string.h"
#include "utils/agent/instance_manager.h"

namespace {

constexpr const char* INSTANCES_PATH = "/d2/r/v2/instances";
constexpr const char* RESOURCES_PATH = "/d2/r/v2/resources";
// Reading instance information tries hard: the server may be busy starting up.
constexpr int INSTANCE_INFO_RETRIES = 10;
constexpr int INSTANCE_INFO_RETRY_TIMEOUT = -1;

json_spirit::Value new_instance_body(const Instance& instance) {
  json_spirit::Object body;
  body["host_uuid"] = Host_Manager::instance()->uuid();
  body["name"] = instance.name;
  body["type"] = instance.type;
  body["uuid"] = instance.uuid;
  body["extended_attrs"] = instance.options;
  return body;
}

// A request whose query is built separately from its path.
HTTP_Request query_request(int method, const char* path, const std::string& uuid,
                           const char* uuid_name) {
  HTTP_Request req(method, path, false);
  HTTP_Query_String_Builder query(req.query_string_buffer());
  query(uuid_name, uuid.c_str());
  return req;
}

}  // namespace

bool add_instance(std::shared_ptr<const Instance> instance) {
  if (AU_IS_NULL(instance)) return false;
  if (!Instance_Manager::instance()->add_instance(instance)) return false;
  const json_spirit::Value body = new_instance_body(*instance);
  json_spirit::Value reply;
  if (!Upstream_JSON_RESTful_Client::instance()->post(INSTANCES_PATH, &body, &reply)) {
    Instance_Manager::instance()->remove_instance(instance);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to post new instance to backupd.\n")));
    return false;
  }
  return true;
}

bool update_instance(std::shared_ptr<const Instance> instance, const json_spirit::Object& attrs) {
  if (AU_IS_NULL(instance)) return false;
  HTTP_Request req = query_request(HTTP_PUT, INSTANCES_PATH, instance->uuid, "uuid");
  const json_spirit::Value body(json_spirit::Object{{"extended_attrs", attrs}});
  json_spirit::Value reply;
  if (!Upstream_JSON_RESTful_Client::instance()->put(req, &body, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to update instance %C to backupd.\n"),
               instance->name.c_str()));
    return false;
  }
  return true;
}

bool remove_resource(std::shared_ptr<const Instance> instance) {
  if (AU_IS_NULL(instance)) return false;
  HTTP_Request req = query_request(HTTP_DELETE, RESOURCES_PATH, instance->uuid, "instance_uuid");
  HTTP_Query_String_Builder query(req.query_string_buffer());
  query("feature", "backup");
  if (!Upstream_JSON_RESTful_Client::instance()->del(req)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove resource of %C.\n"), instance->name.c_str()));
    return false;
  }
  return true;
}

bool remove_instance(std::shared_ptr<const Instance> instance) {
  if (AU_IS_NULL(instance)) return false;
  HTTP_Request req = query_request(HTTP_DELETE, INSTANCES_PATH, instance->uuid, "uuid");
  if (!Upstream_JSON_RESTful_Client::instance()->del(req)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove instance %C(uuid %C).\n"),
               instance->name.c_str(), instance->uuid.c_str()));
    return false;
  }
  return Instance_Manager::instance()->remove_instance(instance);
}

bool get_instance_info(const char* uuid, std::vector<json_spirit::Value>& out) {
  if (AU_IS_NULL_OR_EMPTY(uuid)) return false;
  std::string query_text;
  HTTP_Query_String_Builder query(query_text);
  query("uuid", uuid);
  const std::string path = std::string(RESOURCES_PATH) + "?" + query_text;
  json_spirit::Value row;
  if (!read_first_catalog(path.c_str(), row, INSTANCE_INFO_RETRIES, INSTANCE_INFO_RETRY_TIMEOUT)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get %C instances info\n"), uuid));
    return false;
  }
  try {
    const json_spirit::Value& instances = row.get_obj().at("instances");
    out = instances.get_array();
    return true;
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get instances info: %C\n"), e.what()));
    return false;
  }
}
