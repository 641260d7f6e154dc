// A client of the OceanStor device-manager REST interface: one session (cookie plus
// iBaseToken header) renewed after 180 idle seconds, LUN/snapshot/lun-group/host
// operations and changed-block bitmaps.
//
//   oceanstor::OceanStor_Client array(info);
//   oceanstor::Snapshot snap;
//   if (!array.get_snapshot("64", snap)) return false;   // the client has logged why
//
// Sessions: the first request logs in; so does the first one after logout() or after a
// renewal whose login failed. The device id learned at a login stays for the URLs of
// later requests. A client that holds no session sends nothing when it logs out or
// goes; logout() and the destructor never log in.
//
// Logging: nothing throws; every failure returns false. A failure is logged once by the
// step that saw it and once more by each operation that gives up because of it, each
// line naming its own step. A request the array never answers (a refused port, say)
// during get_changed_blocks logs exactly: the HTTP layer's "HTTP request 'POST <url>'
// failed: <why>.", then "Failed to login OceanStor.", then "Failed to get bitmap chunk,
// lun id: <id>.". Bitmap text that is no hex logs the decoder's line, then "Failed to
// parse bitmap, lun: '<id>'.". Passwords, tokens and session cookies never reach a log.
//
// Threads: one object serves one thread at a time (no locks); distinct objects are
// independent. Ownership: the caller owns the client; it holds its own connection.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "framework/base/api.h"
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

class AGENTUTIL_API OceanStor_Client {
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

  // Told after each bitmap segment how many bytes of the LUN are covered; false stops the
  // bitmap there (a large LUN takes thousands of requests).
  using Bitmap_Progress = std::function<bool(unsigned long done_bytes, unsigned long total_bytes)>;

  explicit OceanStor_Client(const Device_Manager_Info& info);
  virtual ~OceanStor_Client();
  OceanStor_Client(const OceanStor_Client&) = delete;
  OceanStor_Client& operator=(const OceanStor_Client&) = delete;

  // Session. test_login() logs in on the client's connection. logout() closes the session
  // when there is one, even an idle one, without renewing it first; a failed exchange
  // closes it on this side all the same, so the result is always true.
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

  // Changed-block bitmaps; extents count the array's chunks. get_changed_blocks folds each
  // segment into extents as it arrives (the whole text is never held) and touches
  // `blocks` only when every segment was read.
  bool get_bitmap_chunk(const std::string& lun_id, Bitmap_Chunk& chunk);
  bool get_bitmap(const std::string& lun_id, unsigned long size, unsigned int chunk_size, Bitmap& bitmap);
  bool get_bitmap(const std::string& lun_id, const std::string& base_lun_id, unsigned long size,
                  unsigned int chunk_size, Bitmap& bitmap);
  bool get_changed_blocks(const std::string& lun_id, const std::string* base_lun_id, unsigned long size,
                          std::vector<Block>& blocks, unsigned long& chunk_size);

  // An empty callable (the default) reports nothing and never stops.
  void set_bitmap_progress(Bitmap_Progress progress) { bitmap_progress_ = std::move(progress); }

  // The error of the last reply read, and the session (its device id is the one in URLs).
  const Error& last_error() const { return last_error_; }
  const OceanStor_Auth& auth() const { return auth_; }

 protected:
  // The clock and the polling sleeps, for tests that drive time.
  virtual time_t now() const;
  virtual void sleep_seconds(unsigned seconds);
  JSON_RESTful_Client& restful_client() { return restful_client_; }

 private:
  // Segment texts of a bitmap are handed over in order; false stops the requests.
  using Segment_Sink = std::function<bool(std::string& hex_text)>;

  bool login();
  void forget_session();
  // An id as it goes into a URL path or query: percent-encoded, "/" included.
  static std::string url_id(const std::string& id);
  void put_auth_headers(HTTP_Request& req) const;
  bool get_reply(HTTP_Request& req, json_spirit::Value& reply, const std::string& failure_line,
                 const char* error_text);
  bool attach(const json_spirit::Value& body, const char* failure_text);
  bool poll_until_snapshot_unexposed(const std::string& snap_id);
  bool poll_until_lun_unexposed(const std::string& lun_id);
  bool fetch_segments(const std::string& lun_id, const std::string* base_lun_id, unsigned long size,
                      unsigned int chunk_size, const Segment_Sink& sink);

  Device_Manager_Info manager_info_;
  JSON_RESTful_Client restful_client_;
  time_t session_start_;
  Error last_error_;
  OceanStor_Auth auth_;
  Bitmap_Progress bitmap_progress_;
};

// Appends one extent per run of set bits of `bitmap` (bit i is bit i%8 of byte i/8,
// least significant first), offset by `start`; returns the number of set bits.
AGENTUTIL_API unsigned long parse_change_blocks(const std::basic_string<unsigned char>& bitmap,
                                                unsigned long start, std::vector<Block>& blocks);

}  // namespace oceanstor
