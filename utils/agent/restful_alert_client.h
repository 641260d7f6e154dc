// Raising alerts on the backup server, through a REST client of its own (alerts
// may go to a server other than the upstream one).
//
// The caller owns the client. init() must finish before other threads call send_alert();
// send_alert() may then be called from several threads (the REST client serialises its
// exchanges). A failed send is one log line and false; nothing is queued or resent later.
#pragma once

#include <memory>

#include "framework/base/api.h"
#include "framework/http/json_restful_client.h"
#include "framework/json/value.h"

class AGENTUTIL_API RESTful_Alert_Client {
 public:
  // (Re)makes the client; `access_key`, when given, goes with every request.
  bool init(const char* host, unsigned short port, bool ssl, const char* access_key, int retries,
            int retry_timeout);
  explicit operator bool() const { return client_ != nullptr; }

  // POST an alert. Null string pointers and a `revision` of 0 or 1 are left out;
  // "extended_attrs" goes only when both times are given.
  bool send_alert(unsigned long error_id, const json_spirit::Value& params, long job_revision,
                  const char* host_uuid, const char* resource_uuid, const char* job_uuid,
                  const char* job_instance_uuid, long* job_start_time, long* job_end_time,
                  long revision);

 private:
  std::unique_ptr<JSON_RESTful_Client> client_;
};
