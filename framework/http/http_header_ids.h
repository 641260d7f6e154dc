// Well-known header fields by number. Agent code names some headers by these ids
// (HTTP_Headers::put(int, ...), JSON_RESTful_Client::set_header); this table is the
// only place that ties a number to a name.
//
// HTTP_HEADER_ACCESS_KEY (49) carries the agent's access key to the backup server on
// every request of its REST and JSON-RPC services. The value is a secret: it is
// redacted wherever requests are logged.
#pragma once

enum HTTP_Header_Id {
  HTTP_HEADER_ACCEPT = 1,
  HTTP_HEADER_ACCEPT_ENCODING = 2,
  HTTP_HEADER_AUTHORIZATION = 3,
  HTTP_HEADER_CACHE_CONTROL = 4,
  HTTP_HEADER_CONNECTION = 5,
  HTTP_HEADER_CONTENT_LENGTH = 6,
  HTTP_HEADER_CONTENT_TYPE = 7,
  HTTP_HEADER_COOKIE = 8,
  HTTP_HEADER_HOST = 9,
  HTTP_HEADER_LOCATION = 10,
  HTTP_HEADER_SET_COOKIE = 11,
  HTTP_HEADER_TRANSFER_ENCODING = 12,
  HTTP_HEADER_USER_AGENT = 13,
  HTTP_HEADER_ACCESS_KEY = 49,
};

// The field name for an id, or null for a number not in the table.
const char* http_header_name(int id);
