// An RBD consistency group in one pool: member images, group snapshots, renaming.
// Every group function of librbd is optional; each operation fails with a
// "Failed to get symbol ..." line when the loaded librbd lacks it.
//
// Ownership, threads and failures: as for every Ceph object (ceph_context.h).
#pragma once

#include <string>
#include <vector>

#include "framework/base/api.h"
#include "utils/agent/ceph/ceph_context.h"
#include "utils/agent/ceph/ceph_records.h"

namespace ceph {

class Ceph_Image;

class AGENTUTIL_API Ceph_Group {
 public:
  // remove_while_dtor: the destructor removes the group from its pool (a temporary
  // group that cleans up after itself).
  explicit Ceph_Group(bool remove_while_dtor = false);
  ~Ceph_Group();
  Ceph_Group(const Ceph_Group&) = delete;
  Ceph_Group& operator=(const Ceph_Group&) = delete;

  bool create_snapshot(const std::string& snap_name);

  // By name or image URI; the image is always looked up in the group's own pool.
  bool add_image(std::string image_name);
  bool add_image(Ceph_Image& img);
  bool remove_image(const std::string& image_name);
  bool remove_image(Ceph_Image& img);

  // Both append, in librbd's order.
  bool list_snapshot(std::vector<Group_Snapshot_Info>& snapshots);
  bool list_image(std::vector<Image_Spec>& images);

  bool rename(const std::string& new_name);

  const std::string& group_name() const { return group_name_; }
  const std::string& pool_name() const { return pool_name_; }

 private:
  friend class Ceph_Pool;  // new_group/open_group fill the names and handles

  bool remove_while_dtor_;
  std::string pool_name_;
  std::string group_name_;
  Ceph_Context ctx_;
};

}  // namespace ceph
