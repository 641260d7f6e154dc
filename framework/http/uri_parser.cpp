#include "framework/http/uri_parser.h"

#include <ace/Log_Msg.h>
#include <arpa/inet.h>
#include <curl/curl.h>

#include <cstdlib>
#include <memory>

#include "framework/http/curl_global.h"

namespace {

using Url_Handle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

struct Curl_Text_Deleter {
  void operator()(char* p) const { curl_free(p); }
};

// One part of a parsed URL; "" for a part the URL does not have.
CURLUcode get_part(CURLU* url, CURLUPart part, unsigned flags, std::string& out) {
  char* raw = nullptr;
  const CURLUcode rc = curl_url_get(url, part, &raw, flags);
  std::unique_ptr<char, Curl_Text_Deleter> text(raw);
  out = (rc == CURLUE_OK && raw) ? raw : "";
  return rc;
}

bool fail(const char* why) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to parse URI: %C.\n"), why));
  return false;
}

std::string strip_brackets(const std::string& host) {
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
    return host.substr(1, host.size() - 2);
  return host;
}

}  // namespace

std::string URI::host(bool with_port) const {
  if (!with_port) return host_;
  const bool v6 = host_.find(':') != std::string::npos;
  return (v6 ? "[" + host_ + "]" : host_) + ":" + std::to_string(port_);
}

bool URI_Parser::parse(const char* text, URI& out) {
  // The text itself is not logged: it may carry credentials.
  if (text == nullptr || *text == '\0') return fail("empty text");
  ensure_curl_global_init();
  Url_Handle url(curl_url(), &curl_url_cleanup);
  if (!url) return fail("out of memory");
  const CURLUcode rc = curl_url_set(url.get(), CURLUPART_URL, text, 0);
  if (rc != CURLUE_OK) return fail(curl_url_strerror(rc));

  URI parsed;
  std::string host, port;
  get_part(url.get(), CURLUPART_SCHEME, 0, parsed.scheme_);
  if (parsed.scheme_ != "http" && parsed.scheme_ != "https") return fail("not an http(s) URL");
  if (get_part(url.get(), CURLUPART_HOST, 0, host) != CURLUE_OK || host.empty())
    return fail("no host");
  if (get_part(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT, port) != CURLUE_OK)
    return fail("no port");
  const long number = std::strtol(port.c_str(), nullptr, 10);
  if (number <= 0 || number > 65535) return fail("bad port");
  get_part(url.get(), CURLUPART_PATH, 0, parsed.path_);
  get_part(url.get(), CURLUPART_QUERY, 0, parsed.query_);

  // libcurl writes a numeric IPv4 host ("5", "0x7f.1") in dotted form before it decodes
  // %-escapes, so "%35" came back as "5" where "5" comes back as "0.0.0.5". Dotted form
  // for both: the same server gives the same host, as the resolver would read it.
  in_addr v4;
  char dotted[INET_ADDRSTRLEN];
  if (::inet_aton(host.c_str(), &v4) != 0 && ::inet_ntop(AF_INET, &v4, dotted, sizeof dotted))
    host = dotted;
  parsed.host_ = strip_brackets(host);
  parsed.port_ = static_cast<unsigned short>(number);
  if (parsed.path_.empty()) parsed.path_ = "/";
  out = std::move(parsed);
  return true;
}
