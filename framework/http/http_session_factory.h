// Making HTTP sessions: to a named server, or to one of the servers the process
// knows by role (HTTP_Options). Stateless and callable from any thread; the caller owns
// the session it gets (shared pointer), which follows HTTP_Session's threading rules.
#pragma once

#include <string>

#include "framework/http/http_session.h"

// TLS settings come from the CA file and the verification flag; an ACE_SSL_Context is
// not supported by the curl transport (see create()).
class ACE_SSL_Context;

class HTTP_Session_Factory {
 public:
  // What Common_HTTP_Session_Factory needs for a session of type Custom.
  struct Create_Params {
    std::string host;
    unsigned short port = 0;
    bool ssl = false;
    std::string ca_file;
    int connect_attempts = 1;
    bool no_verify = false;
    int connect_timeout = 30;
    int transfer_timeout = 0;
    int idle_timeout = 120;
  };

  // A session to host:port. ca_file: CA bundle for HTTPS (null or "": the system's).
  // connect_attempts: tries to reach the server within one exchange. ssl_context
  // must be null. no_verify: accept any certificate. The three time limits are
  // seconds, as in HTTP_Connection_Settings. flags: HTTP_Connection_Flag values.
  // Gives a null pointer, with one log line, for a null or empty host or a non-null
  // ssl_context.
  static HTTP_Session_Ptr create(const char* host, unsigned short port, bool ssl,
                                 const char* ca_file, int connect_attempts,
                                 ACE_SSL_Context* ssl_context, bool no_verify,
                                 int connect_timeout, int transfer_timeout, int idle_timeout,
                                 unsigned flags);
  static HTTP_Session_Ptr create(const Create_Params& params, unsigned flags);
};

class Common_HTTP_Session_Factory {
 public:
  enum Type {
    // The server named by the Create_Params.
    Custom = 0,
    // The backup server on its REST/JSON-RPC port (HTTP_Options::backupd()), carrying
    // this host's access key; Create_Params are not used.
    Backupd = 3,
  };

  // Null, with one log line, for an unknown type or Custom without params.
  static HTTP_Session_Ptr create(Type type, const HTTP_Session_Factory::Create_Params* params,
                                 unsigned flags);
};
