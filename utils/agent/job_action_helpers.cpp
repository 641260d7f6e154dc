#include "utils/agent/job_action_helpers.h"

#include <ace/Log_Msg.h>

#include "framework/base/snprintf_t.h"
#include "framework/http/upstream_json_restful_client.h"
#include "framework/log/check.h"

bool job_action(const char* action, const char* agent, const char* job_def_id,
                const options_map& options) {
  if (AU_IS_NULL_OR_EMPTY(action)) return false;
  if (AU_IS_NULL_OR_EMPTY(agent)) return false;
  if (AU_IS_NULL_OR_EMPTY(job_def_id)) return false;
  const snprintf_t<128> path("/d2/r/v2/job/action?job_uuid=%s", job_def_id);
  const json_spirit::Value body(
      json_spirit::Object{{"action", action}, {"agent", agent}, {"options", options}});
  json_spirit::Value reply;
  if (!Upstream_JSON_RESTful_Client::instance()->post(path.c_str(), &body, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to %C job %C.\n"), action, job_def_id));
    return false;
  }
  return true;
}
