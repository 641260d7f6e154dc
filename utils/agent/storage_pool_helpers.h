// JSON over HTTP to the storage-pool service (storaged), addressed by a storage URL
// such as "https://10.0.0.7:8443", and asking the backup server whether a catalog's
// incarnation is online.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/http/json_http_session.h"
#include "framework/json/value.h"

// Opens a session to the URL's host, port and scheme and installs it in `session`.
AGENTUTIL_API bool init_storaged_session(const std::string& storage_url,
                                         JSON_HTTP_Session& session);

// One exchange each; true only when it succeeded with status 200 exactly.
AGENTUTIL_API bool pool_http_get(const std::string& storage_url, const char* path,
                                 json_spirit::Value& out);
AGENTUTIL_API bool pool_http_post(const std::string& storage_url, const char* path,
                                  const json_spirit::Value* body, json_spirit::Value* response);
AGENTUTIL_API bool pool_http_delete(const std::string& storage_url, const char* path);

// 1 online, 0 not online, -1 when the question could not be answered.
AGENTUTIL_API int is_catalog_online(const std::string& pool_uuid, const std::string& catalog_uuid,
                                    bool check_replicate);
