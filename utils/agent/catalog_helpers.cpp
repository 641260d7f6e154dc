#include "utils/agent/catalog_helpers.h"

#include <ace/Log_Msg.h>

#include <exception>
#include <utility>

#include "framework/http/upstream_json_restful_client.h"
#include "framework/log/check.h"

namespace {

// A client for one exchange, with the caller's retry settings.
class Catalog_Client : public Upstream_JSON_RESTful_Client {
 public:
  Catalog_Client(int retries, int retry_timeout) : Upstream_JSON_RESTful_Client(0) {
    this->retries(retries);
    this->retry_timeout(retry_timeout);
  }
};

}  // namespace

bool write_catalog(const char* uri, const json_spirit::Value& catalog, int retries,
                   int retry_timeout) {
  return write_catalog(uri, nullptr, catalog, retries, retry_timeout);
}

bool write_catalog(const char* uri, const char* query_string, const json_spirit::Value& catalog,
                   int retries, int retry_timeout) {
  if (AU_IS_NULL_OR_EMPTY(uri)) return false;
  Catalog_Client client(retries, retry_timeout);
  HTTP_Request req(HTTP_POST, uri, true);
  if (query_string != nullptr) req.query_string(query_string);
  return client.post(req, &catalog, nullptr);
}

bool write_catalog(const char* uri, json_spirit::JSON_Generator& generator, int retries,
                   int retry_timeout) {
  if (AU_IS_NULL_OR_EMPTY(uri)) return false;
  Catalog_Client client(retries, retry_timeout);
  HTTP_Request req(HTTP_POST, uri, true);
  return client.post(req, generator, nullptr);
}

bool read_catalogs(const char* uri, json_spirit::Value& out, int retries, int retry_timeout) {
  if (AU_IS_NULL_OR_EMPTY(uri)) return false;
  Catalog_Client client(retries, retry_timeout);
  return read_catalogs(client, uri, out);
}

bool read_catalogs(JSON_RESTful_Client& client, const char* uri, json_spirit::Value& out) {
  if (AU_IS_NULL_OR_EMPTY(uri)) return false;
  HTTP_Request req(HTTP_GET, uri, true);
  // The client fills the value with an error reply's body too: keep it away from `out`.
  json_spirit::Value reply;
  if (!client.get(req, &reply)) return false;
  out = std::move(reply);
  return true;
}

bool read_first_catalog(const char* uri, json_spirit::Value& out, int retries, int retry_timeout) {
  if (AU_IS_NULL_OR_EMPTY(uri)) return false;
  Catalog_Client client(retries, retry_timeout);
  return read_first_catalog(client, uri, out);
}

bool read_first_catalog(JSON_RESTful_Client& client, const char* uri, json_spirit::Value& out) {
  if (AU_IS_NULL_OR_EMPTY(uri)) return false;
  json_spirit::Value listing;
  HTTP_Request req(HTTP_GET, uri, true);
  if (!client.get(req, &listing)) return false;
  try {
    // A missing "rows" reads as null, which then fails as "not an array".
    static const json_spirit::Value missing;
    const json_spirit::Object& listing_obj = listing.get_obj();
    const auto rows = listing_obj.find("rows");
    const json_spirit::Array& array =
        (rows == listing_obj.end() ? missing : rows->second).get_array();
    if (array.empty()) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get first catalog.\n")));
      return false;
    }
    out = array.front();
    return true;
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Invalid catalog data: %C\n"), e.what()));
    return false;
  }
}

bool delete_catalog(const char* uri, int retries, int retry_timeout) {
  if (AU_IS_NULL_OR_EMPTY(uri)) return false;
  Catalog_Client client(retries, retry_timeout);
  HTTP_Request req(HTTP_DELETE, uri, true);
  return client.del(req);
}
