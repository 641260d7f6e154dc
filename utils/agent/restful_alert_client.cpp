#include "utils/agent/restful_alert_client.h"

#include <ace/Log_Msg.h>

#include "framework/http/http_header_ids.h"
#include "framework/json/writer.h"
#include "framework/log/check.h"

namespace {

constexpr const char* ALERTS_PATH = "/d2/r/v2/alerts";

void put_if_given(json_spirit::Object& body, const char* key, const char* value) {
  if (value != nullptr) body[key] = std::string(value);
}

}  // namespace

bool RESTful_Alert_Client::init(const char* host, unsigned short port, bool ssl,
                                const char* access_key, int retries, int retry_timeout) {
  if (AU_IS_NULL_OR_EMPTY(host)) return false;
  client_.reset(new JSON_RESTful_Client(host, port, ssl));
  client_->retries(retries);
  client_->retry_timeout(retry_timeout);
  if (access_key != nullptr && *access_key != '\0')
    client_->set_header(HTTP_HEADER_ACCESS_KEY, access_key);
  return true;
}

bool RESTful_Alert_Client::send_alert(unsigned long error_id, const json_spirit::Value& params,
                                      long job_revision, const char* host_uuid,
                                      const char* resource_uuid, const char* job_uuid,
                                      const char* job_instance_uuid, long* job_start_time,
                                      long* job_end_time, long revision) {
  if (AU_IS_FALSE(client_)) return false;
  json_spirit::Object body;
  body["error_id"] = error_id;
  body["params"] = params;
  body["job_revision"] = job_revision;
  put_if_given(body, "host_uuid", host_uuid);
  put_if_given(body, "resource_uuid", resource_uuid);
  put_if_given(body, "job_uuid", job_uuid);
  put_if_given(body, "job_instance_uuid", job_instance_uuid);
  if (revision > 1) body["revision"] = revision;
  if (job_start_time != nullptr && job_end_time != nullptr)
    body["extended_attrs"] =
        json_spirit::Object{{"job_start_time", *job_start_time}, {"job_end_time", *job_end_time}};
  const json_spirit::Value request(std::move(body));
  json_spirit::Value reply;
  if (!client_->post(ALERTS_PATH, &request, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to send alert to backupd, msg %C.\n"),
               json_spirit::JSON_Redacted_Dump(reply).c_str()));
    return false;
  }
  return true;
}
