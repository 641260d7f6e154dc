// A client of the OceanStor device-manager REST interface: one session (cookie plus
// iBaseToken header) renewed after 180 idle seconds, LUN/snapshot/lun-group/host
// operations and changed-block bitmaps.
//
//   oceanstor::OceanStor_Client array(info);
//   oceanstor::Snapshot snap;
//   if (!array.get_snapshot("64", snap)) return false;   // the client has logged why
//
// Every operation returns false on failure after one log line; nothing throws. One
// object serves one thread at a time.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "framework/http/http_request.h"
#include "framework/http/http_response.h"
#include "framework/http/json_restful_client.h"
#include "framework/json/value.h"
#include "utils/agent/block.h"
#include "utils/agent/oceanstor/device_manager_info.h"
#include "utils/agent/oceanstor/dto/bitmap.h"
#include "utils/agent/oceanstor/dto/bitmap_chunk.h"
#include "utils/agent/oceanstor/dto/error.h"
#include "utils/agent/oceanstor/dto/host.h"
#include "utils/agent/oceanstor/dto/host_link.h"
#include "utils/agent/oceanstor/dto/lun.h"
#include "utils/agent/oceanstor/dto/snapshot.h"

namespace oceanstor {

// Array error codes the detach operations tell apart.
constexpr int ERROR_NOT_IN_LUN_GROUP = 1077948996;  // 0x40403244
constexpr int ERROR_OBJECT_NOT_EXIST = 1077937880;  // 0x404006D8

// Seconds of idleness after which the session is renewed before the next request.
constexpr time_t SESSION_IDLE_LIMIT = 180;
// Requests taking this many seconds or more are reported.
constexpr time_t SLOW_REQUEST_SECONDS = 10;
// The largest stretch of a LUN one bitmap request covers.
constexpr unsigned long BITMAP_SEGMENT_BYTES = 2147483648UL;

class OceanStor_Client {
 public:
  struct OceanStor_Auth {
    std::string device_id;
    std::string session;  // the "session..." token of the login's Set-Cookie; never logged
    std::string token;    // iBaseToken; never logged

    explicit operator bool() const { return !session.empty() && !token.empty() && !device_id.empty(); }
    void clear() {
      device_id.clear();
      session.clear();
      token.clear();
    }
  };

  explicit OceanStor_Client(const Device_Manager_Info& info);
  virtual ~OceanStor_Client();
  OceanStor_Client(const OceanStor_Client&) = delete;
  OceanStor_Client& operator=(const OceanStor_Client&) = delete;

  // Session.
  bool test_login();
  bool logout();

  // Requests, authenticated (and the session renewed) as needed.
  bool send_request(HTTP_Request& req, json_spirit::Value* resp_body);
  bool send_request(HTTP_Request& req, const json_spirit::Value* req_body, json_spirit::Value* resp_body);
  bool send_request(HTTP_Request& req, HTTP_Response& resp, const json_spirit::Value* req_body,
                    json_spirit::Value* resp_body);
  bool send_request_i(HTTP_Request& req, HTTP_Response& resp, const json_spirit::Value* req_body,
                      json_spirit::Value* resp_body);
  bool handle_auth(HTTP_Request& req, bool relogin);
  static bool parse_session(const std::string& cookie, std::string& session);
  // Loads last_error_ from a reply; true when it read and its code is 0.
  bool no_error(const json_spirit::Value& body);
  // Logs a failed request with its bodies (secrets masked); always false.
  bool print_error(const char* msg, const HTTP_Request& req, const json_spirit::Value* req_body,
                   const json_spirit::Value* resp_body);

  // Snapshots and LUNs.
  bool get_snapshot(const std::string& snap_id, Snapshot& snap);
  bool get_snapshot(const std::string& host_id, const std::string& snap_id, Snapshot& snap);
  bool is_snap_attached(const std::string& snap_id);
  bool get_lun(const std::string& lun_id, LUN& lun);
  bool get_snap_luns(const std::string& host_id, const std::string& snap_id, std::vector<LUN>& luns);
  bool get_luns(const std::string& host_id, const std::string& lun_id, std::vector<LUN>& luns);

  // Lun-group mapping; a detach returns once the array no longer exposes the object.
  bool attach_snapshot(const std::string& snap_id, const std::string& lun_group_id);
  bool attach_lun(const std::string& lun_id, const std::string& lun_group_id);
  bool detach_snapshot(const std::string& snap_id, const std::string& lun_group_id);
  bool detach_lun(const std::string& lun_id, const std::string& lun_group_id);

  // Hosts and Fibre Channel links.
  bool get_snapshot_belong_hosts(const std::string& snap_id, std::vector<Host>& hosts);
  bool get_lun_belong_hosts(const std::string& lun_id, std::vector<Host>& hosts);
  bool get_fc_host_links(const std::string& host_id, std::vector<Host_Link>& links);

  // Changed-block bitmaps; extents count the array's chunks.
  bool get_bitmap_chunk(const std::string& lun_id, Bitmap_Chunk& chunk);
  bool get_bitmap(const std::string& lun_id, unsigned long size, unsigned int chunk_size, Bitmap& bitmap);
  bool get_bitmap(const std::string& lun_id, const std::string& base_lun_id, unsigned long size,
                  unsigned int chunk_size, Bitmap& bitmap);
  bool get_changed_blocks(const std::string& lun_id, const std::string* base_lun_id, unsigned long size,
                          std::vector<Block>& blocks, unsigned long& chunk_size);

  const Error& last_error() const { return last_error_; }
  const OceanStor_Auth& auth() const { return auth_; }

 protected:
  // Seams for time and connections: a subclass can drive the clock, skip the polling
  // sleeps, or adjust a connection (CA file, retries) before it is used.
  virtual time_t now() const;
  virtual void sleep_seconds(unsigned seconds);
  virtual void prepare_connection(JSON_RESTful_Client& client);
  // Told after each bitmap segment how many bytes of the LUN are covered; a large LUN takes
  // thousands of requests, so a subclass can show progress, or return false to stop there.
  virtual bool bitmap_progress(unsigned long done_bytes, unsigned long total_bytes);
  JSON_RESTful_Client& restful_client() { return restful_client_; }

 private:
  bool login(JSON_RESTful_Client& client);
  void put_auth_headers(HTTP_Request& req) const;
  bool get_reply(HTTP_Request& req, json_spirit::Value& reply, const std::string& failure_line,
                 const char* error_text);
  bool attach(const json_spirit::Value& body, const char* failure_text);
  bool poll_until_snapshot_unexposed(const std::string& snap_id);
  bool poll_until_lun_unexposed(const std::string& lun_id);
  bool fetch_bitmap(const std::string& lun_id, const std::string* base_lun_id, unsigned long size,
                    unsigned int chunk_size, Bitmap& bitmap);

  Device_Manager_Info manager_info_;
  JSON_RESTful_Client restful_client_;
  time_t session_start_;
  Error last_error_;
  OceanStor_Auth auth_;
};

// Appends one extent per run of set bits of `bitmap` (bit i is bit i%8 of byte i/8,
// least significant first), offset by `start`; returns the number of set bits.
unsigned long parse_change_blocks(const std::basic_string<unsigned char>& bitmap, unsigned long start,
                                  std::vector<Block>& blocks);

}  // namespace oceanstor
