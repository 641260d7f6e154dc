// An open RBD image head: data access, zeroing, resize, rollback, snapshots (create, list,
// check, remove, purge), changed extents, layout queries and image metadata.
//
// Ownership, threads and failures: as for every Ceph object (ceph_context.h).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "framework/base/api.h"
#include "utils/agent/block.h"
#include "utils/agent/ceph/ceph_context.h"
#include "utils/agent/ceph/ceph_records.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace ceph {

// (done, total) from librbd's resize, rollback and snapshot removal; its result goes back
// to librbd.
using Progress_Callback = std::function<int(uint64_t done, uint64_t total)>;

// librbd progress adapter; `arg` is a Progress_Callback*. -22 when it is null.
AGENTUTIL_API int progress_cb(uint64_t offset, uint64_t total, void* arg);
// For librbd calls that need a progress callback when the caller gave none.
AGENTUTIL_API int dummy_progress_fn(uint64_t offset, uint64_t total, void* arg);

// `alignment` must be a power of two.
inline uint64_t rounding_up_power_2(uint64_t value, uint64_t alignment) {
  return (value + alignment - 1) & ~(alignment - 1);
}
inline uint64_t rounding_down_power_2(uint64_t value, uint64_t alignment) {
  return value & ~(alignment - 1);
}

class AGENTUTIL_API Ceph_Image {
 public:
  Ceph_Image() = default;
  explicit Ceph_Image(Ceph_Context ctx);

  const std::string& pool_name() const { return pool_name_; }
  const std::string& image_name() const { return image_name_; }
  void pool_name(std::string name) { pool_name_ = std::move(name); }
  void image_name(std::string name) { image_name_ = std::move(name); }

  // The shared handles; the opener (pool, client) fills img_ctx_.
  Ceph_Context& context() { return ctx_; }
  const Ceph_Context& context() const { return ctx_; }

  // True when the image handle is open.
  explicit operator bool() const { return static_cast<bool>(ctx_.img_ctx_); }

  void close_image();
  // "ceph://pool/image"
  std::string uri() const;

  bool list_snapshot(std::vector<Snapshot_Info>& snapshots);
  bool open_snapshot(const std::string& snap_name, Ceph_Snapshot& snapshot, bool read_only);
  bool new_snapshot(const std::string& snap_name, Ceph_Snapshot& snapshot);
  bool is_snapshot_exist(const std::string& snap_name, bool& exists);

  bool stat(Snapshot_Stat& stat);
  uint64_t size();

  // Every extent from the image's creation; `cb` follows the stop rule of Diff_Callback.
  bool diff_iterate(const Diff_Callback& cb);
  bool get_changed_blocks(const std::string& from_snap, Blocks& blocks, int power_of_2,
                          Range range, bool ignore_file_hole, Cancel_Callback cancel_callback);

  int read(uint64_t ofs, uint64_t len, char* buf, int op_flags);
  int write(uint64_t ofs, uint64_t len, const char* buf, int op_flags);
  int write_zeroes(uint64_t ofs, uint64_t len);

  bool resize(uint64_t size, bool allow_shrink, Progress_Callback progress);
  bool rollback(const std::string& snap_name, Progress_Callback progress);
  // Removes every user snapshot; protected ones only when `force`.
  bool purge_snapshots(bool force);
  bool flush();

  bool get_features(uint64_t& features);
  int update_features(uint64_t features, bool enabled);
  uint64_t get_stripe_unit();
  uint64_t get_stripe_count();
  bool get_group(Group_Info& group);
  bool get_stripe_info(uint64_t& stripe_unit, uint64_t& stripe_count);

  // librbd's namespace type (0 user, 1 group, 2 trash), or a negative errno.
  int get_snap_namespace_type(uint64_t snap_id);
  bool remove_snapshot(const std::string& snap_name, int flags);
  bool snap_is_protected(const std::string& snap_name);

  bool list_metadatas(std::map<std::string, std::string>& metadatas);
  bool get_metadata(const std::string& key, std::string& value);
  bool set_metadata(const std::string& key, const std::string& value);
  bool remove_metadata(const std::string& key);

 private:
  int write_zeroes_from_buffer(uint64_t ofs, uint64_t len);

  std::string pool_name_;
  std::string image_name_;
  Ceph_Context ctx_;
};

}  // namespace ceph
