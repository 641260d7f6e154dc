// An open RBD snapshot, and the queries that serve any open image or snapshot through its
// Ceph_Context: changed-extent extraction, data access, size, features, stripes, group.
//
// Ownership, threads and failures: as for every Ceph object (ceph_context.h).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "framework/base/api.h"
#include "framework/base/basic_string_arg.h"
#include "utils/agent/block.h"
#include "utils/agent/ceph/ceph_context.h"
#include "utils/agent/ceph/ceph_records.h"

namespace ceph {

// Changed extents are reported on a grid of 1 << power_of_2 bytes.
constexpr int MIN_CHANGED_BLOCK_POWER = 12;  // 4 KiB
constexpr int MAX_CHANGED_BLOCK_POWER = 30;  // 1 GiB

// True asks a long operation to stop; may be empty.
using Cancel_Callback = std::function<bool()>;

// Told (offset, length, exists) for each extent librbd reports, on the calling thread.
// The stop rule, the same for every diff function of this folder: return non-zero to go
// on; 0 stops librbd, and the diff call then returns false after its failure line.
using Diff_Callback = std::function<int(uint64_t offset, uint64_t length, int exists)>;

// librbd's C callback; `arg` is a Diff_Callback*. Answers librbd 0 (go on) when the function
// returns non-zero, -1 (stop) when it returns 0 or `arg` is null.
AGENTUTIL_API int diff_iterate_cb(uint64_t offset, uint64_t length, int exists, void* arg);

class AGENTUTIL_API Ceph_Snapshot {
 public:
  Ceph_Snapshot() = default;
  explicit Ceph_Snapshot(Ceph_Context ctx);

  const std::string& pool_name() const { return pool_name_; }
  const std::string& image_name() const { return image_name_; }
  const std::string& snapshot_name() const { return snapshot_name_; }
  void pool_name(std::string name) { pool_name_ = std::move(name); }
  void image_name(std::string name) { image_name_ = std::move(name); }
  void snapshot_name(std::string name) { snapshot_name_ = std::move(name); }

  // The shared handles; the opener (pool, client) fills img_ctx_.
  Ceph_Context& context() { return ctx_; }
  const Ceph_Context& context() const { return ctx_; }

  // True when the snapshot's image handle is open.
  explicit operator bool() const { return static_cast<bool>(ctx_.img_ctx_); }

  void close_snapshot();

  // The whole snapshot from the image's creation. Every diff function here follows the
  // stop rule of Diff_Callback.
  bool diff_iterate(const Diff_Callback& cb);
  // From `from_snap` (empty: from creation); length 0 means up to the snapshot's size.
  bool diff_iterate(const std::string& from_snap, const Diff_Callback& cb, uint64_t offset,
                    uint64_t length);

  bool get_changed_blocks(const std::string& from_snap, Blocks& blocks, int power_of_2,
                          Range range, bool ignore_file_hole,
                          Cancel_Callback cancel_callback, bool include_parent,
                          bool whole_object);
  bool get_allocated_blocks(Blocks& blocks, int power_of_2, Range range,
                            bool ignore_file_hole, Cancel_Callback cancel_callback);

  int read(uint64_t offset, uint64_t length, char* buf, int op_flags);
  int write(uint64_t offset, uint64_t length, const char* buf, int op_flags);
  bool flush();

  bool stat(Snapshot_Stat& stat);
  uint64_t size();
  bool get_features(uint64_t& features);
  int update_features(uint64_t features, bool enabled);
  uint64_t get_stripe_unit();
  uint64_t get_stripe_count();
  std::string get_block_name_prefix();
  bool get_group(Group_Info& group);

  // ---- On any open image or snapshot (ctx.img_ctx_) ----

  static bool diff_iterate(Ceph_Context& ctx, Basic_String_Arg<char> from_snap,
                           const Diff_Callback& cb, uint64_t offset, uint64_t length,
                           bool include_parent, bool whole_object);

  // Extents that differ from `from_snap` (empty: every allocated extent) within `range`
  // (length 0: the whole size), each widened to the chunk grid, then sorted and merged
  // together with what `blocks` already holds.
  static bool get_changed_blocks(Ceph_Context& ctx, Basic_String_Arg<char> from_snap,
                                 Blocks& blocks, int power_of_2, Range range,
                                 bool ignore_file_hole, Cancel_Callback cancel_callback,
                                 bool include_parent, bool whole_object);

  // Byte count, or -22 (closed handle), -95 (flags asked, no rbd_read2/rbd_write2), or
  // librbd's negative error.
  static int read(Ceph_Context& ctx, uint64_t offset, uint64_t length, char* buf,
                  int op_flags);
  static int write(Ceph_Context& ctx, uint64_t offset, uint64_t length, const char* buf,
                   int op_flags);
  static bool flush(Ceph_Context& ctx);

  static bool stat(Ceph_Context& ctx, Snapshot_Stat& stat);
  // 0 when the handle is not open, (uint64_t)-1 when librbd fails.
  static uint64_t size(Ceph_Context& ctx);
  static bool get_features(Ceph_Context& ctx, uint64_t& features);
  // 0 on success, -1 on failure.
  static int update_features(Ceph_Context& ctx, uint64_t features, bool enabled);
  static uint64_t get_stripe_unit(Ceph_Context& ctx);
  static uint64_t get_stripe_count(Ceph_Context& ctx);
  static std::string get_block_name_prefix(Ceph_Context& ctx);
  static bool get_group(Ceph_Context& ctx, Group_Info& group);

 private:
  std::string pool_name_;
  std::string image_name_;
  std::string snapshot_name_;
  Ceph_Context ctx_;
};

}  // namespace ceph
