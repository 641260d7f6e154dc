#include "utils/agent/storage_pool_helpers.h"

#include <ace/Log_Msg.h>

#include <exception>

#include "framework/http/http_session_factory.h"
#include "framework/http/upstream_json_restful_client.h"
#include "framework/http/uri_parser.h"
#include "framework/json/writer.h"
#include "framework/log/check.h"

namespace {

constexpr const char* INCARNATION_PATH = "/d2/r/storages/catalogs/incarnation";
// Session time limits (seconds) and the JSON layer's attempts and time budget.
constexpr int STORAGED_TIMEOUT = 120;
constexpr int STORAGED_CONNECT_ATTEMPTS = 3;
constexpr int STORAGED_ATTEMPTS = 5;
constexpr int STORAGED_BUDGET = 300;
constexpr int HTTP_STATUS_OK = 200;

// A JSON session to storaged for one exchange; empty (and logged) on failure.
bool open_pool_session(const std::string& storage_url, JSON_HTTP_Session& session) {
  if (init_storaged_session(storage_url, session)) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to init storaged session by url %C.\n"),
             storage_url.c_str()));
  return false;
}

HTTP_Request pool_request(int method, const char* path) {
  HTTP_Request req(method);
  req.uri(path, true);
  return req;
}

bool is_online(const json_spirit::Value& incarnation) {
  for (const auto& state : incarnation.get_obj().at("state").get_array())
    if (state.get_str() == "online") return true;
  return false;
}

}  // namespace

bool init_storaged_session(const std::string& storage_url, JSON_HTTP_Session& session) {
  if (AU_IS_EMPTY(storage_url)) return false;
  URI uri;
  if (!URI_Parser::parse(storage_url.c_str(), uri)) return false;
  session.reset(HTTP_Session_Factory::create(uri.host(false).c_str(), uri.port(), uri.is_ssl(),
                                             nullptr, STORAGED_CONNECT_ATTEMPTS, nullptr, false,
                                             STORAGED_TIMEOUT, STORAGED_TIMEOUT, STORAGED_TIMEOUT,
                                             0));
  if (!session) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create json http session\n")));
    return false;
  }
  return true;
}

bool pool_http_get(const std::string& storage_url, const char* path, json_spirit::Value& out) {
  if (AU_IS_NULL(path)) return false;
  JSON_HTTP_Session session(HTTP_Session_Ptr(), STORAGED_ATTEMPTS, STORAGED_BUDGET);
  if (!open_pool_session(storage_url, session)) return false;
  HTTP_Request req = pool_request(HTTP_GET, path);
  HTTP_Response resp;
  if (!session.get(req, resp, out) || resp.status() != HTTP_STATUS_OK) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get data from '%C'\n"), path));
    return false;
  }
  return true;
}

bool pool_http_post(const std::string& storage_url, const char* path,
                    const json_spirit::Value* body, json_spirit::Value* response) {
  if (AU_IS_NULL(path)) return false;
  JSON_HTTP_Session session(HTTP_Session_Ptr(), STORAGED_ATTEMPTS, STORAGED_BUDGET);
  if (!open_pool_session(storage_url, session)) return false;
  HTTP_Request req = pool_request(HTTP_POST, path);
  HTTP_Response resp;
  json_spirit::Value reply;
  json_spirit::Value* target = response != nullptr ? response : &reply;
  if (!session.post(req, body, resp, target) || resp.status() != HTTP_STATUS_OK) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to post data to '%C': %C\n"), path,
               json_spirit::JSON_Redacted_Dump(*target).c_str()));
    return false;
  }
  return true;
}

bool pool_http_delete(const std::string& storage_url, const char* path) {
  if (AU_IS_NULL(path)) return false;
  JSON_HTTP_Session session(HTTP_Session_Ptr(), STORAGED_ATTEMPTS, STORAGED_BUDGET);
  if (!open_pool_session(storage_url, session)) return false;
  HTTP_Request req = pool_request(HTTP_DELETE, path);
  HTTP_Response resp;
  if (!session.del(req, nullptr, resp, nullptr) || resp.status() != HTTP_STATUS_OK) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to delete data from '%C'\n"), path));
    return false;
  }
  return true;
}

int is_catalog_online(const std::string& pool_uuid, const std::string& catalog_uuid,
                      bool check_replicate) {
  const json_spirit::Value body(json_spirit::Object{
      {"pool_uuid", pool_uuid},
      {"check_replicate", check_replicate},
      {"catalog_uuids", json_spirit::Array{catalog_uuid}}});
  json_spirit::Value reply;
  if (!Upstream_JSON_RESTful_Client::instance()->post(INCARNATION_PATH, &body, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get incarnation info.\n")));
    return -1;
  }
  try {
    if (reply.type() != json_spirit::array_type || reply.get_array().size() != 1) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("With wrong data for incarnation info.\n")));
      return -1;
    }
    return is_online(reply.get_array().front()) ? 1 : 0;
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get incarnation info: %C\n"), e.what()));
    return -1;
  }
}
