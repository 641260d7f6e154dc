// The JSON REST client for the backup server (backupd). It takes the server's address
// and the connection defaults from HTTP_Options, and this host's access key from
// Host_Manager, afresh before every call: the agent program may set them after the
// client was made, or change them.
//
// instance() is one client per process, made on first use and never destroyed before
// exit; like any JSON_RESTful_Client it may be shared between threads (each call takes
// the settings and a share of the connection under the client's lock).
#pragma once

#include "framework/base/api.h"
#include "framework/http/json_restful_client.h"

class AGENTUTIL_API Upstream_JSON_RESTful_Client : public JSON_RESTful_Client {
 public:
  // flags: HTTP_Connection_Flag values.
  explicit Upstream_JSON_RESTful_Client(unsigned flags = 0);

  // One client for the whole process.
  static Upstream_JSON_RESTful_Client* instance();

 protected:
  void refresh() override;

 private:
  unsigned flags_;
};
