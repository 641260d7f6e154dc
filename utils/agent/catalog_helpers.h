// Catalogs on the backup server's upstream REST service: write one, read them back
// (all, or the first row of a listing), delete one. The caller gives the full path.
//
// The forms with (retries, retry_timeout) make a client of their own for the one
// exchange; the others use the caller's client. Every function is true when the
// exchange succeeded; the reason of a failure has been logged.
#pragma once

#include "framework/base/api.h"
#include "framework/http/json_restful_client.h"
#include "framework/json/generator.h"
#include "framework/json/value.h"

AGENTUTIL_API bool write_catalog(const char* uri, const json_spirit::Value& catalog, int retries,
                                 int retry_timeout);
// `query_string` (without "?") goes on the request as it is.
AGENTUTIL_API bool write_catalog(const char* uri, const char* query_string,
                                 const json_spirit::Value& catalog, int retries, int retry_timeout);
// For catalogs too large to hold as one value: the body is what the generator produces.
AGENTUTIL_API bool write_catalog(const char* uri, json_spirit::JSON_Generator& generator,
                                 int retries, int retry_timeout);

// The whole reply. `out` is written only on success.
AGENTUTIL_API bool read_catalogs(const char* uri, json_spirit::Value& out, int retries,
                                 int retry_timeout);
AGENTUTIL_API bool read_catalogs(JSON_RESTful_Client& client, const char* uri,
                                 json_spirit::Value& out);

// The first element of the listing's "rows". `out` is written only on success.
AGENTUTIL_API bool read_first_catalog(const char* uri, json_spirit::Value& out, int retries,
                                      int retry_timeout);
AGENTUTIL_API bool read_first_catalog(JSON_RESTful_Client& client, const char* uri,
                                      json_spirit::Value& out);

AGENTUTIL_API bool delete_catalog(const char* uri, int retries, int retry_timeout);
