// Entry point to a Ceph cluster: the librados cluster handle for a client id, its
// configuration and connection, and the pools, images and snapshots opened through it.
//
// Ownership, threads and failures: as for every Ceph object (ceph_context.h).
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "framework/base/api.h"
#include "framework/base/basic_string_arg.h"
#include "framework/json/value.h"
#include "utils/agent/ceph/ceph_context.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace ceph {

class Ceph_Pool;
class Ceph_Image;

class AGENTUTIL_API Ceph_Client {
 public:
  using Options = std::map<std::string, json_spirit::Value>;

  // Binds librados, then librbd (each at most once per process). False when either is
  // unavailable; librbd is not tried when librados failed.
  static bool open_ceph_libraries();

  // Creates the cluster handle for client `id` ("admin", not "client.admin"). With
  // close_on_destruction false the cluster is never shut down by this library.
  // Failures show through error() and the later operations.
  Ceph_Client(Basic_String_Arg<char> id, bool close_on_destruction);
  // The same, then connect(configs).
  Ceph_Client(Basic_String_Arg<char> id, const Options& configs, bool close_on_destruction);
  // Shares the handles of `ctx`.
  explicit Ceph_Client(Ceph_Context ctx);
  ~Ceph_Client() = default;

  // A conf file; empty lets librados search its default places.
  bool set_configs(const std::string& file);
  // String values only (others are skipped with a warning). An unknown option stops
  // the walk unless ignore_unknown; other rados_conf_set failures are logged and passed.
  bool set_configs(const Options& configs, bool ignore_unknown);

  bool connect();
  // set_configs(configs, true) && connect().
  bool connect(const Options& configs);

  // Lets go of this client's share of the cluster handle.
  void shutdown();

  // Appends the pool names.
  bool list_pool(std::vector<std::string>& pools);

  bool open_pool(const std::string& name, Ceph_Pool& pool);
  bool open_pool(unsigned long id, Ceph_Pool& pool);

  bool open_image(const std::string& pool_name, const std::string& img_name, Ceph_Image& image,
                  bool read_only);
  // "ceph://pool/image"; a snapshot URI opens its image (the snapshot part is ignored).
  bool open_image(const std::string& uri, Ceph_Image& image, bool read_only);

  bool open_snapshot(const std::string& pool_name, const std::string& img_name,
                     const std::string& snap_name, Ceph_Snapshot& snap, bool read_only);
  // "ceph://pool/image@snap" only.
  bool open_snapshot(const std::string& uri, Ceph_Snapshot& snap, bool read_only);

  // Changed extents of an image (from its creation; from_snap must be empty) or of a
  // snapshot (from from_snap, or from the creation when empty). `cb` gets offset, length
  // and whether the extent holds data, and returns non-zero to go on; 0 stops the walk,
  // which then fails (see Diff_Callback).
  bool diff_iterate(const std::string& uri, Basic_String_Arg<char> from_snap, Diff_Callback cb);

  // The text of the last librados error, "" when it was not an error.
  std::string error() const;
  int error_code() const { return error_; }

  const Ceph_Context& context() const { return ctx_; }
  // The id it was built for; empty when it shares another's handles.
  const std::string& client_id() const { return client_id_; }

  static std::string to_uri(const std::string& pool, const std::string& img);
  static std::string to_uri(const std::string& pool, const std::string& img,
                            const std::string& snap);

 private:
  bool init_cluster(Basic_String_Arg<char> id);
  bool set_config(const std::string& key, const json_spirit::Value& value, bool ignore_unknown);

  std::string client_id_;
  int error_ = 0;
  Ceph_Context ctx_;
};

// The opening step of Ceph_Client::open_pool(id), for holders of a cluster handle (a pool
// looking up the pool of an image's group): the same lines, librados' result in `error`.
bool open_pool_by_id(const Ceph_Context& cluster, unsigned long id, Ceph_Pool& pool, int* error);

}  // namespace ceph
