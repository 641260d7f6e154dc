#include "utils/agent/oceanstor/oceanstor_client.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_time.h>
#include <ace/OS_NS_unistd.h>

#include <boost/tokenizer.hpp>
#include <exception>

#include "framework/base/scoped_deleter.h"
#include "framework/base/snprintf_t.h"
#include "framework/http/http_method.h"
#include "framework/http/http_redaction.h"
#include "framework/json/extract.h"
#include "framework/json/writer.h"
#include "framework/log/check.h"
#include "utils/agent/http_query_string.h"

namespace oceanstor {

namespace {

constexpr const char* LOGIN_URI = "/deviceManager/rest/xxxxx/sessions";
constexpr const char* SESSION_URI = "/deviceManager/rest/%s/sessions";
constexpr const char* COOKIE_HEADER = "Cookie";
constexpr const char* SET_COOKIE_HEADER = "Set-Cookie";
constexpr const char* TOKEN_HEADER = "iBaseToken";

// Connection values shared by the client's own connection and the login connection:
// keep-alive, connect/transfer/idle limits in seconds, retries.
constexpr bool KEEP_ALIVE = true;
constexpr int CONNECT_TIMEOUT = 120;
constexpr int TRANSFER_TIMEOUT = 120;
constexpr int IDLE_TIMEOUT = 120;
constexpr int RETRIES = 5;

// Seconds of idleness after which the session is renewed before the next request.
constexpr time_t SESSION_IDLE_LIMIT = 180;
// Requests taking this many seconds or more are reported.
constexpr time_t SLOW_REQUEST_SECONDS = 10;

// Bodies as they may appear in log lines: secure strings (the password) masked.
std::string dump_for_log(const json_spirit::Value& body) {
  return json_spirit::JSON_Redacted_Dump(body).str();
}

}  // namespace

OceanStor_Client::OceanStor_Client(const Device_Manager_Info& info)
    : manager_info_(info),
      restful_client_(info.host.c_str(), static_cast<unsigned short>(info.port), info.ssl, KEEP_ALIVE,
                      CONNECT_TIMEOUT, TRANSFER_TIMEOUT, IDLE_TIMEOUT, RETRIES),
      session_start_(0) {
  restful_client_.streaming(false);
  if (!manager_info_.ca_file.empty()) restful_client_.ca_file(manager_info_.ca_file.c_str());
  auth_.device_id = manager_info_.device_id;
}

OceanStor_Client::~OceanStor_Client() { logout(); }

time_t OceanStor_Client::now() const { return ACE_OS::time(nullptr); }

void OceanStor_Client::sleep_seconds(unsigned seconds) { ACE_OS::sleep(seconds); }

std::string OceanStor_Client::url_id(const std::string& id) {
  std::string encoded;
  http_encode_string_i(id.c_str(), HTTP_ENCODE_SLASH | HTTP_ENCODE_UPPER_HEX, encoded);  // "" stays ""
  return encoded;
}

// No session any more; the device id learned at the last login stays for the URLs, so
// that the next request can log in again.
void OceanStor_Client::forget_session() {
  auth_.clear();
  auth_.device_id = manager_info_.device_id;
}

bool OceanStor_Client::login() {
  json_spirit::Value body;
  if (!(manager_info_.auth_info >> body)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to dump auth info.\n")));
    return false;
  }
  HTTP_Request req(HTTP_POST, LOGIN_URI, false);
  HTTP_Response resp;
  json_spirit::Value reply;
  if (!restful_client_.post(req, &body, resp, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to login OceanStor.\n")));
    return false;
  }
  // The request body holds the password: it is never handed to print_error.
  if (!no_error(reply)) return print_error("Failed to login OceanStor", req, nullptr, &reply);

  forget_session();
  const char* cookie = resp.headers().get(SET_COOKIE_HEADER, true);
  const std::string cookie_text = cookie ? cookie : "";
  if (!parse_session(cookie_text, auth_.session)) {
    // The text may still hold a session token the array spelled oddly: values are masked.
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to parse cookie: %C.\n"),
               http_cookie_for_log(cookie_text).c_str()));
    return false;
  }
  try {
    json_spirit::JSON_Pointer_Extractor extractor(reply);
    extractor.extract("/data/deviceid", auth_.device_id, true);
    extractor.extract("/data/iBaseToken", auth_.token, true);
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected exception occurred while parse auth json, %C.\n"), e.what()));
    forget_session();
    return false;
  }
  manager_info_.device_id = auth_.device_id;
  return true;
}

bool OceanStor_Client::test_login() { return login(); }

void OceanStor_Client::put_auth_headers(HTTP_Request& req) const {
  req.headers().put(COOKIE_HEADER, auth_.session.c_str(), true);
  req.headers().put(TOKEN_HEADER, auth_.token.c_str(), true);
}

bool OceanStor_Client::handle_auth(HTTP_Request& req, bool relogin) {
  if (auth_ && !relogin) {
    put_auth_headers(req);
    return true;
  }
  if (auth_) logout();  // a renewal; the new login goes over the same connection
  if (!login()) return false;
  put_auth_headers(req);
  return true;
}

bool OceanStor_Client::parse_session(const std::string& cookie, std::string& session) {
  using Tokenizer = boost::tokenizer<boost::char_separator<char>>;
  const boost::char_separator<char> separator(";");
  for (const std::string& token : Tokenizer(cookie, separator)) {
    if (token.compare(0, 7, "session") == 0) {
      session = token;
      return true;
    }
  }
  return false;
}

bool OceanStor_Client::send_request(HTTP_Request& req, json_spirit::Value* resp_body) {
  return send_request(req, nullptr, resp_body);
}

bool OceanStor_Client::send_request(HTTP_Request& req, const json_spirit::Value* req_body,
                                    json_spirit::Value* resp_body) {
  HTTP_Response resp;
  return send_request(req, resp, req_body, resp_body);
}

bool OceanStor_Client::send_request(HTTP_Request& req, HTTP_Response& resp, const json_spirit::Value* req_body,
                                    json_spirit::Value* resp_body) {
  const time_t current = now();
  const bool relogin = current - session_start_ >= SESSION_IDLE_LIMIT;
  session_start_ = current;
  if (!handle_auth(req, relogin)) return false;
  if (send_request_i(req, resp, req_body, resp_body)) return true;

  // A failed exchange counts as failed only when its reply body says so: a caller
  // that asked for no body (logout) or an error code 0 sees success.
  if (resp_body && !no_error(*resp_body)) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("OceanStor request '%C %C' returns error, http status %d, error code= '%d', message = '%C'.\n"),
               http_method_string(req.method()), req.target().c_str(), resp.status(), last_error_.code,
               last_error_.description.c_str()));
    return false;
  }
  return true;
}

bool OceanStor_Client::send_request_i(HTTP_Request& req, HTTP_Response& resp, const json_spirit::Value* req_body,
                                      json_spirit::Value* resp_body) {
  const time_t start = now();
  auto slow_report = make_deleter([this, start, &req] {
    const time_t cost = now() - start;
    if (cost >= SLOW_REQUEST_SECONDS) {
      ACE_ERROR((LM_INFO, ACE_TEXT("Slow OceanStor request '%C %C' detected, cost %Qs.\n"),
                 http_method_string(req.method()), req.target().c_str(), static_cast<ACE_UINT64>(cost)));
    }
  });
  switch (req.method()) {
    case HTTP_GET:
      return restful_client_.get(req, resp, resp_body);
    case HTTP_POST:
      return restful_client_.post(req, req_body, resp, resp_body);
    case HTTP_PUT:
      return restful_client_.put(req, req_body, resp, resp_body);
    case HTTP_DELETE:
      return restful_client_.del(req, req_body, resp, resp_body);
    default:
      ACE_ERROR((LM_ERROR, ACE_TEXT("Unsupported HTTP method '%C' for OceanStor RESTful client.\n"),
                 http_method_string(req.method())));
      return false;
  }
}

bool OceanStor_Client::no_error(const json_spirit::Value& body) {
  last_error_.clear();
  if (!(last_error_ << body)) return false;
  return last_error_.code == 0;
}

bool OceanStor_Client::print_error(const char* msg, const HTTP_Request& req, const json_spirit::Value* req_body,
                                   const json_spirit::Value* resp_body) {
  if (AU_IS_NULL(msg)) return false;
  if (AU_IS_NULL(resp_body)) return false;
  const char* secure = manager_info_.ssl ? "s" : "";
  const std::string reply = dump_for_log(*resp_body);
  if (req_body == nullptr) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("%C, method: %C, url http%C://%C:%u%C resp body:\n%C\n"), msg,
               http_method_string(req.method()), secure, manager_info_.host.c_str(), manager_info_.port,
               req.target().c_str(), reply.c_str()));
  } else {
    ACE_ERROR((LM_ERROR, ACE_TEXT("%C, method: %C, url http%C://%C:%u%C req body: %C\n resp body:\n%C\n"), msg,
               http_method_string(req.method()), secure, manager_info_.host.c_str(), manager_info_.port,
               req.target().c_str(), dump_for_log(*req_body).c_str(), reply.c_str()));
  }
  return false;
}

// Sends the DELETE with the session as it is, never renewing it first: logging in only
// to log out would be a waste, and against an array that does not answer a long one.
// A failed exchange still ends the session on our side.
bool OceanStor_Client::logout() {
  if (!auth_) {
    forget_session();
    return true;
  }
  const snprintf_t<128> uri(SESSION_URI, url_id(auth_.device_id).c_str());
  HTTP_Request req(HTTP_DELETE, uri.c_str(), false);
  put_auth_headers(req);
  session_start_ = now();
  HTTP_Response resp;
  send_request_i(req, resp, nullptr, nullptr);
  forget_session();
  return true;
}

bool OceanStor_Client::get_reply(HTTP_Request& req, json_spirit::Value& reply, const std::string& failure_line,
                                 const char* error_text) {
  if (!send_request(req, &reply)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("%C"), failure_line.c_str()));
    return false;
  }
  if (!no_error(reply)) return print_error(error_text, req, nullptr, &reply);
  return true;
}

}  // namespace oceanstor
