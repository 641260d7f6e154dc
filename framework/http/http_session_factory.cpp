#include "framework/http/http_session_factory.h"

#include <ace/Log_Msg.h>

#include <algorithm>

#include "framework/http/host_manager.h"
#include "framework/http/http_header_ids.h"
#include "framework/http/http_options.h"
#include "framework/log/check.h"

namespace {

HTTP_Session_Ptr make_session(const HTTP_Connection_Settings& settings) {
  return HTTP_Session_Ptr(new HTTP_Session(settings));
}

HTTP_Session_Ptr backupd_session(unsigned flags) {
  const HTTP_Options* options = HTTP_Options::instance();
  HTTP_Session_Ptr session =
      make_session(apply_connection_flags(options->settings_for(options->backupd()), flags));
  const std::string key = Host_Manager::instance()->access_key();
  if (!key.empty()) session->headers().put(HTTP_HEADER_ACCESS_KEY, key.c_str(), true);
  return session;
}

}  // namespace

HTTP_Session_Ptr HTTP_Session_Factory::create(const char* host, unsigned short port, bool ssl,
                                              const char* ca_file, int connect_attempts,
                                              ACE_SSL_Context* ssl_context, bool no_verify,
                                              int connect_timeout, int transfer_timeout,
                                              int idle_timeout, unsigned flags) {
  if (AU_IS_NULL_OR_EMPTY(host)) return HTTP_Session_Ptr();
  if (ssl_context != nullptr) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to create HTTP session to %C:%u: an ACE_SSL_Context is not "
                        "supported, pass a CA file instead.\n"),
               host, static_cast<unsigned>(port)));
    return HTTP_Session_Ptr();
  }
  HTTP_Connection_Settings s = HTTP_Options::instance()->defaults();
  s.host = host;
  s.port = port;
  s.ssl = ssl;
  if (ca_file != nullptr && *ca_file != '\0') s.ca_file = ca_file;
  s.connect_attempts = std::max(connect_attempts, 1);
  s.verify_peer = !no_verify;
  s.connect_timeout = connect_timeout;
  s.transfer_timeout = transfer_timeout;
  s.idle_timeout = idle_timeout;
  return make_session(apply_connection_flags(s, flags));
}

HTTP_Session_Ptr HTTP_Session_Factory::create(const Create_Params& p, unsigned flags) {
  return create(p.host.c_str(), p.port, p.ssl, p.ca_file.c_str(), p.connect_attempts, nullptr,
                p.no_verify, p.connect_timeout, p.transfer_timeout, p.idle_timeout, flags);
}

HTTP_Session_Ptr Common_HTTP_Session_Factory::create(
    Type type, const HTTP_Session_Factory::Create_Params* params, unsigned flags) {
  switch (type) {
    case Backupd:
      return backupd_session(flags);
    case Custom:
      if (AU_IS_NULL(params)) return HTTP_Session_Ptr();
      return HTTP_Session_Factory::create(*params, flags);
  }
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create HTTP session: unknown session type %d.\n"),
             static_cast<int>(type)));
  return HTTP_Session_Ptr();
}
