#include "utils/agent/ceph/ceph_snapshot.h"

#include <ace/Log_Msg.h>

#include <utility>

#include "utils/agent/ceph/rbd_handle.h"

namespace ceph {

Ceph_Snapshot::Ceph_Snapshot(Ceph_Context ctx) : ctx_(std::move(ctx)) {}

void Ceph_Snapshot::close_snapshot() { ctx_ = Ceph_Context(); }

// ---- Changed extents ----

bool Ceph_Snapshot::diff_iterate(const Diff_Callback& cb) {
  Snapshot_Stat info;
  if (!rbd_handle::stat(ctx_, info)) {
    ACE_ERROR((LM_ERROR, "Failed to iterate over snapshot '%s': can't stat its size.\n",
               snapshot_name_.c_str()));
    return false;
  }
  return rbd_handle::diff_iterate(ctx_, Basic_String_Arg<char>(), cb, 0, info.size, true, false);
}

bool Ceph_Snapshot::diff_iterate(const std::string& from_snap, const Diff_Callback& cb,
                                 uint64_t offset, uint64_t length) {
  if (length == 0) {
    Snapshot_Stat info;
    if (!rbd_handle::stat(ctx_, info)) {
      ACE_ERROR((LM_ERROR, "Failed to iterate over snapshot '%s' - '%s': can't stat its size.\n",
                 from_snap.c_str(), snapshot_name_.c_str()));
      return false;
    }
    length = info.size;
  }
  // Compared with the length, not with offset + length: callers pass offset 0 or a length
  // measured from 0.
  if (offset >= length) {
    ACE_ERROR((LM_ERROR,
               "Failed to iterate over snapshots '%s' - '%s': the offset %Q beyonds snapshot's "
               "size %Q.\n",
               from_snap.c_str(), snapshot_name_.c_str(), offset, length));
    return false;
  }
  return rbd_handle::diff_iterate(ctx_, from_snap, cb, offset, length, true, false);
}

bool Ceph_Snapshot::get_changed_blocks(const std::string& from_snap, Blocks& blocks, int power_of_2,
                                       Range range, bool ignore_file_hole,
                                       Cancel_Callback cancel_callback, bool include_parent,
                                       bool whole_object) {
  return rbd_handle::get_changed_blocks(ctx_, from_snap, blocks, power_of_2, range,
                                        ignore_file_hole, cancel_callback, include_parent,
                                        whole_object);
}

bool Ceph_Snapshot::get_allocated_blocks(Blocks& blocks, int power_of_2, Range range,
                                         bool ignore_file_hole, Cancel_Callback cancel_callback) {
  return rbd_handle::get_changed_blocks(ctx_, Basic_String_Arg<char>(), blocks, power_of_2, range,
                                        ignore_file_hole, cancel_callback, false, false);
}

// ---- The static forms over any open image or snapshot ----

bool Ceph_Snapshot::diff_iterate(Ceph_Context& ctx, Basic_String_Arg<char> from_snap,
                                 const Diff_Callback& cb, uint64_t offset, uint64_t length,
                                 bool include_parent, bool whole_object) {
  return rbd_handle::diff_iterate(ctx, from_snap, cb, offset, length, include_parent, whole_object);
}

bool Ceph_Snapshot::get_changed_blocks(Ceph_Context& ctx, Basic_String_Arg<char> from_snap,
                                       Blocks& blocks, int power_of_2, Range range,
                                       bool ignore_file_hole, Cancel_Callback cancel_callback,
                                       bool include_parent, bool whole_object) {
  return rbd_handle::get_changed_blocks(ctx, from_snap, blocks, power_of_2, range, ignore_file_hole,
                                        cancel_callback, include_parent, whole_object);
}

int Ceph_Snapshot::read(Ceph_Context& ctx, uint64_t offset, uint64_t length, char* buf,
                        int op_flags) {
  return rbd_handle::read(ctx, offset, length, buf, op_flags);
}
int Ceph_Snapshot::write(Ceph_Context& ctx, uint64_t offset, uint64_t length, const char* buf,
                         int op_flags) {
  return rbd_handle::write(ctx, offset, length, buf, op_flags);
}
bool Ceph_Snapshot::flush(Ceph_Context& ctx) { return rbd_handle::flush(ctx); }
bool Ceph_Snapshot::stat(Ceph_Context& ctx, Snapshot_Stat& out) {
  return rbd_handle::stat(ctx, out);
}
uint64_t Ceph_Snapshot::size(Ceph_Context& ctx) { return rbd_handle::size(ctx); }
bool Ceph_Snapshot::get_features(Ceph_Context& ctx, uint64_t& features) {
  return rbd_handle::get_features(ctx, features);
}
int Ceph_Snapshot::update_features(Ceph_Context& ctx, uint64_t features, bool enabled) {
  return rbd_handle::update_features(ctx, features, enabled);
}
uint64_t Ceph_Snapshot::get_stripe_unit(Ceph_Context& ctx) {
  return rbd_handle::get_stripe_unit(ctx);
}
uint64_t Ceph_Snapshot::get_stripe_count(Ceph_Context& ctx) {
  return rbd_handle::get_stripe_count(ctx);
}
std::string Ceph_Snapshot::get_block_name_prefix(Ceph_Context& ctx) {
  return rbd_handle::get_block_name_prefix(ctx);
}
bool Ceph_Snapshot::get_group(Ceph_Context& ctx, Group_Info& group) {
  return rbd_handle::get_group(ctx, group);
}

// ---- Members: the same on this snapshot's handle ----

int Ceph_Snapshot::read(uint64_t offset, uint64_t length, char* buf, int op_flags) {
  return rbd_handle::read(ctx_, offset, length, buf, op_flags);
}
int Ceph_Snapshot::write(uint64_t offset, uint64_t length, const char* buf, int op_flags) {
  return rbd_handle::write(ctx_, offset, length, buf, op_flags);
}
bool Ceph_Snapshot::flush() { return rbd_handle::flush(ctx_); }
bool Ceph_Snapshot::stat(Snapshot_Stat& out) { return rbd_handle::stat(ctx_, out); }
uint64_t Ceph_Snapshot::size() { return rbd_handle::size(ctx_); }
bool Ceph_Snapshot::get_features(uint64_t& features) {
  return rbd_handle::get_features(ctx_, features);
}
int Ceph_Snapshot::update_features(uint64_t features, bool enabled) {
  return rbd_handle::update_features(ctx_, features, enabled);
}
uint64_t Ceph_Snapshot::get_stripe_unit() { return rbd_handle::get_stripe_unit(ctx_); }
uint64_t Ceph_Snapshot::get_stripe_count() { return rbd_handle::get_stripe_count(ctx_); }
std::string Ceph_Snapshot::get_block_name_prefix() {
  return rbd_handle::get_block_name_prefix(ctx_);
}
bool Ceph_Snapshot::get_group(Group_Info& group) { return rbd_handle::get_group(ctx_, group); }

}  // namespace ceph
