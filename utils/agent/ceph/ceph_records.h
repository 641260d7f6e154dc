// Plain records through which the Ceph classes return listings and status. Each mirrors
// the librbd structure named beside it; numbers default to zero, strings to empty.
#pragma once

#include <cstdint>
#include <string>

namespace ceph {

// rbd_image_spec_t
struct Image_Spec {
  std::string id;
  std::string name;
};

// rbd_group_info_t
struct Group_Info {
  uint64_t pool_id = 0;
  std::string name;
};

// rbd_group_snap_info_t
struct Group_Snapshot_Info {
  int state = 0;
  std::string name;
};

// rbd_snap_info_t: size is the image size at the snapshot.
struct Snapshot_Info {
  uint64_t id = 0;
  uint64_t size = 0;
  std::string name;
};

// rbd_image_info_t
struct Snapshot_Stat {
  int order = 0;  // object size is 1 << order
  uint64_t size = 0;
  uint64_t obj_size = 0;
  uint64_t num_objs = 0;
  int64_t parent_pool = 0;
  std::string block_name_prefix;
  std::string parent_name;
};

}  // namespace ceph
