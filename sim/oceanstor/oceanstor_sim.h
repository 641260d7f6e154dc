// An in-process stand-in for an OceanStor device manager (the array's REST service),
// on 127.0.0.1 at a port the kernel picks, over HTTP or HTTPS.
//
// It answers the way the array does: HTTP 200 with "data" and an "error" object, ids
// as strings, "ASSOCIATEMETADATA" as JSON packed in a string; a session cookie and an
// iBaseToken from the login that every later request must send back, with the
// device id in its path (code -401 otherwise). It models LUNs and snapshots (their
// chunks' contents, from which allocation and difference bitmaps follow), lun groups,
// hosts and FC links; a detached object stays exposed for a configurable number of
// reads. It records every request and misbehaves on demand.
//
// With a device directory, a LUN or snapshot mapped to any lun group is also a file there,
// wwn-0x<WWN>, as the host would see its block device: sparse, of the object's size, each
// chunk's content repeated to fill the chunk (unwritten chunks are holes). It appears
// whole (written aside, then renamed) and goes when the last mapping does. Bytes written
// to a mapped LUN's file become its chunks whenever the model is asked (bitmaps, a
// snapshot taken, volume_bytes, write_chunk) and at the unmapping: a chunk of zeros is
// unwritten, a chunk equal to its old content's expansion keeps that content, any other
// chunk holds its bytes. A snapshot's file is read-only to the model.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "framework/json/value.h"
#include "sim/common/loopback_server.h"
#include "sim/common/sim_fault.h"
#include "sim/common/sim_request.h"

namespace au_sim {

// Random lower-case hexadecimal digits (session cookies, tokens).
std::string random_hex_text(std::size_t digits);

class OceanStor_Sim {
 public:
  static constexpr int64_t UNAUTHORIZED = -401;
  static constexpr int64_t OBJECT_NOT_EXIST = 1077937880;
  static constexpr int64_t NOT_IN_LUN_GROUP = 1077948996;
  static constexpr int64_t ALREADY_IN_LUN_GROUP = 1077948997;
  static constexpr int64_t BAD_PARAMETER = 50331651;

  // HTTPS when both PEM files are given.
  OceanStor_Sim();
  OceanStor_Sim(const std::string& cert_file, const std::string& key_file);
  ~OceanStor_Sim();
  OceanStor_Sim(const OceanStor_Sim&) = delete;
  OceanStor_Sim& operator=(const OceanStor_Sim&) = delete;

  bool start(unsigned short port = 0);
  void stop();
  unsigned short port() const { return server_.port(); }
  const std::string& device_id() const { return device_id_; }
  // "/deviceManager/rest/<device id>"
  std::string rest_base() const;

  // Credentials the login accepts (default admin / Admin@storage1).
  void set_credentials(const std::string& username, const std::string& password);
  // Every live session becomes invalid: later requests get -401.
  void expire_sessions();
  std::size_t live_sessions() const;
  // Sessions handed out so far.
  std::size_t logins() const;

  // The model. Sizes are bytes; chunk contents are whatever the test says, "" = unwritten.
  void add_lun(const std::string& id, const std::string& name, uint64_t size);
  void add_snapshot(const std::string& id, const std::string& name, const std::string& lun_id);
  void write_chunk(const std::string& object_id, uint64_t chunk, const std::string& content);
  void add_lun_group(const std::string& id);
  void add_host(const std::string& id, const std::string& name, const std::string& lun_group_id);
  void add_host_link(const std::string& host_id, const std::string& link_id, const std::string& health,
                     const std::string& running);
  bool in_lun_group(const std::string& group_id, const std::string& object_id) const;
  bool exposed(const std::string& object_id) const;
  // After a detach the object stays exposed for this many reads of it (default 0).
  void set_unexpose_after_reads(int reads);
  // The bitmap chunk size reported, as text (default "64", in KiB).
  void set_chunk_size_text(const std::string& text);
  // Where mapped objects appear ("" = nowhere, the default). Set before mapping anything.
  void set_device_dir(const std::string& dir);
  // The object's WWN ("" for an unknown id).
  std::string wwn(const std::string& object_id) const;
  // `length` bytes of the object from `offset` (cut at its size) as the model has them.
  std::string volume_bytes(const std::string& object_id, uint64_t offset, uint64_t length);

  // Faults for requests whose path equals `path` ("" = any); see Sim_Fault.
  void inject(const std::string& path, Sim_Fault fault);
  // A reply with this array error code (may exceed 32 bits) for the next `times` requests.
  void inject_error(const std::string& path, int64_t code, int times = 1);
  // A 200 reply whose body keeps coming until the server stops.
  void inject_endless_reply(const std::string& path, int times = 1);
  // Replaces the handling of method + path (exact path, no query) until clear_faults().
  void set_reply(const std::string& method, const std::string& path, Sim_Reply reply);
  void clear_faults();

  std::vector<Sim_Request> requests() const;
  std::vector<Sim_Request> requests_to(const std::string& path) const;
  void clear_requests();

  // The array's reply shapes.
  static std::string reply_text(const json_spirit::Value& data, int64_t code = 0,
                                const std::string& description = "0", const std::string& suggestion = "");

 private:
  struct Volume {
    bool snapshot = false;
    std::string name;
    std::string wwn;
    std::string parent;  // snapshots: their LUN
    uint64_t size = 0;
    std::map<uint64_t, std::string> chunks;
    int reads_until_unexposed = -1;  // counting down after a detach; -1: none pending
    bool device = false;             // its file is in the device directory
  };
  struct Host_Entry {
    std::string name;
    std::string lun_group;
    std::vector<json_spirit::Value> links;
  };
  struct Endless {
    std::string path;
    int times;
  };

  void init();
  void serve(const httplib::Request& req, httplib::Response& res);
  bool take_fault(const std::string& path, Sim_Fault& fault);
  bool take_endless(const std::string& path);
  Sim_Reply dispatch(const Sim_Request& request, std::string& set_cookie);
  Sim_Reply route(const Sim_Request& request, const std::string& resource);
  bool authorized(const Sim_Request& request) const;

  Sim_Reply on_login(const Sim_Request& request, std::string& set_cookie);
  Sim_Reply on_logout(const Sim_Request& request);
  Sim_Reply on_lun(const std::string& id);
  Sim_Reply on_snapshot(const std::string& id);
  Sim_Reply on_associated(const Sim_Request& request, bool snapshots);
  Sim_Reply on_lun_group(const Sim_Request& request);
  Sim_Reply on_host_associate(const Sim_Request& request);
  Sim_Reply on_host_link(const Sim_Request& request);
  Sim_Reply on_bitmap_chunk(const Sim_Request& request);
  Sim_Reply on_bitmap(const Sim_Request& request, bool unshared);

  json_spirit::Value volume_json(const std::string& id, Volume& v, int host_lun_id);
  bool is_exposed(const std::string& id) const;
  std::vector<std::string> groups_of(const std::string& id) const;

  // The device files (oceanstor_devices.cpp); callers hold mutex_.
  uint64_t chunk_bytes() const;
  std::string device_path(const Volume& v) const;
  std::string chunk_bytes_of(const Volume& v, uint64_t chunk) const;
  void create_device(Volume& v);
  void remove_device(Volume& v);
  void sync_from_device(Volume& v);
  void write_device_chunk(const Volume& v, uint64_t chunk);

  Loopback_Server server_;
  std::string device_id_;

  mutable std::mutex mutex_;
  std::string username_ = "admin";
  std::string password_ = "Admin@storage1";
  std::map<std::string, std::string> sessions_;  // cookie value -> token
  std::size_t logins_ = 0;
  unsigned long serial_ = 0;

  std::map<std::string, Volume> volumes_;
  std::map<std::string, std::vector<std::string>> lun_groups_;  // id -> members in order
  std::map<std::string, Host_Entry> hosts_;
  int unexpose_after_reads_ = 0;
  std::string chunk_size_text_ = "64";
  std::string device_dir_;

  Request_Log log_;
  std::vector<std::pair<std::string, Sim_Fault>> faults_;
  std::vector<Endless> endless_;
  std::map<std::pair<std::string, std::string>, Sim_Reply> replies_;
};

}  // namespace au_sim
