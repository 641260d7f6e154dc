// An open RADOS pool: the factory for the images, snapshots and consistency groups in it,
// plus image listing and removal and the pool's RBD metadata.
//
// Ownership, threads and failures: as for every Ceph object (ceph_context.h).
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "framework/base/api.h"
#include "utils/agent/ceph/ceph_context.h"
#include "utils/agent/ceph/ceph_records.h"

namespace ceph {

class Ceph_Image;
class Ceph_Snapshot;
class Ceph_Group;

class AGENTUTIL_API Ceph_Pool {
 public:
  Ceph_Pool() = default;
  // Adopts shared handles; the pool is opened when ctx.io_ctx_ holds one.
  explicit Ceph_Pool(Ceph_Context ctx);

  void pool_name(std::string name) { pool_name_ = std::move(name); }
  const std::string& pool_name() const { return pool_name_; }

  // The shared handles; Ceph_Client::open_pool fills io_ctx_.
  Ceph_Context& context() { return ctx_; }
  const Ceph_Context& context() const { return ctx_; }

  explicit operator bool() const { return static_cast<bool>(ctx_.io_ctx_); }

  // Lets go of this pool's share of the I/O context (and of the cluster).
  void close_pool();

  // Both append to `images`. list_image takes rbd_list2 when librbd has it (ids filled),
  // else rbd_list (names only).
  bool list_image(std::vector<Image_Spec>& images);
  bool list_image2(std::vector<Image_Spec>& images);

  // read_only opens without the header watch and exclusive lock (rbd_open_read_only,
  // where librbd has it), so the handle never makes the image busy for others.
  bool open_image(const std::string& name, Ceph_Image& image, bool read_only);
  // `error`, when given, receives librbd's result of the open (0 or a negative errno).
  bool open_snapshot(const std::string& img_name, const std::string& snap_name, Ceph_Snapshot& snap,
                     bool read_only, int* error = nullptr);

  // rbd_create3; then opens the new image into `image`.
  bool new_image(const std::string& name, unsigned long size, Ceph_Image& image,
                 unsigned long features, int order, unsigned long stripe_unit,
                 unsigned long stripe_count, bool read_only);
  // A pool image with snapshots is refused unless purge_snapshots, which removes them
  // (protected ones too) and tries the removal once more.
  bool remove_image(const std::string& img_name, bool purge_snapshots);

  bool new_group(const std::string& group_name, Ceph_Group& group);
  // Creates the group and adds each image (a name or an image URI of this pool).
  bool new_group(const std::string& group_name, const std::vector<std::string>& images,
                 Ceph_Group& group);
  bool open_group(const std::string& group_name, Ceph_Group& group);
  // Adds the group names to `groups`.
  bool list_group(std::set<std::string>& groups);
  bool remove_group(const std::string& group_name);

  // The name as Ceph reports it for the I/O context.
  bool get_pool_name(std::string& name);

  // Pool-level RBD metadata (rbd pool metadata ...). list_metadatas replaces `metadatas`.
  bool list_metadatas(std::map<std::string, std::string>& metadatas);
  bool get_metadata(const std::string& key, std::string& value);
  bool set_metadata(const std::string& key, const std::string& value);
  bool remove_metadata(const std::string& key);

 private:
  bool fill_group(const std::string& group_name, Ceph_Group& group);

  std::string pool_name_;
  Ceph_Context ctx_;
};

}  // namespace ceph
