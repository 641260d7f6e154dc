// Entry point to a Ceph cluster.
#pragma once

namespace ceph {

class Ceph_Client {
 public:
  // Binds librados, then librbd (each at most once per process). False when either is
  // unavailable; librbd is not tried when librados failed.
  static bool open_ceph_libraries();
};

}  // namespace ceph
