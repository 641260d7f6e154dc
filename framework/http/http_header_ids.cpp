#include "framework/http/http_header_ids.h"

namespace {

struct Header_Entry {
  int id;
  const char* name;
};

const Header_Entry HEADER_TABLE[] = {
    {HTTP_HEADER_ACCEPT, "Accept"},
    {HTTP_HEADER_ACCEPT_ENCODING, "Accept-Encoding"},
    {HTTP_HEADER_AUTHORIZATION, "Authorization"},
    {HTTP_HEADER_CACHE_CONTROL, "Cache-Control"},
    {HTTP_HEADER_CONNECTION, "Connection"},
    {HTTP_HEADER_CONTENT_LENGTH, "Content-Length"},
    {HTTP_HEADER_CONTENT_TYPE, "Content-Type"},
    {HTTP_HEADER_COOKIE, "Cookie"},
    {HTTP_HEADER_HOST, "Host"},
    {HTTP_HEADER_LOCATION, "Location"},
    {HTTP_HEADER_SET_COOKIE, "Set-Cookie"},
    {HTTP_HEADER_TRANSFER_ENCODING, "Transfer-Encoding"},
    {HTTP_HEADER_USER_AGENT, "User-Agent"},
    {HTTP_HEADER_ACCESS_KEY, "X-Access-Key"},
};

}  // namespace

const char* http_header_name(int id) {
  for (const Header_Entry& e : HEADER_TABLE)
    if (e.id == id) return e.name;
  return nullptr;
}
