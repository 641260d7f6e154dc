#include "utils/agent/ceph/ceph_snapshot.h"

#include <ace/Log_Msg.h>
#include <rbd/librbd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "framework/base/posix_error.h"
#include "framework/log/check.h"
#include "utils/agent/ceph/changed_blocks.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace ceph {

namespace {

rbd_image_t image_of(const Ceph_Context& ctx) { return static_cast<rbd_image_t>(*ctx.img_ctx_); }

// librbd reports -errno; messages print the positive code and its text.
const char* error_text(int negative_code, POSIX_Error& holder) {
  holder = POSIX_Error(-negative_code);
  return holder.c_str();
}

}  // namespace

int diff_iterate_cb(uint64_t offset, uint64_t length, int exists, void* arg) {
  if (arg == nullptr) return -1;
  const auto& fn = *static_cast<const Diff_Callback*>(arg);
  return fn(offset, length, exists) == 0 ? -1 : 0;
}

Ceph_Snapshot::Ceph_Snapshot(Ceph_Context ctx) : ctx_(std::move(ctx)) {}

void Ceph_Snapshot::close_snapshot() { ctx_ = Ceph_Context(); }

// ---- Changed extents ----

bool Ceph_Snapshot::diff_iterate(Ceph_Context& ctx, Basic_String_Arg<char> from_snap,
                                 const Diff_Callback& cb, uint64_t offset, uint64_t length,
                                 bool include_parent, bool whole_object) {
  if (!ctx.img_ctx_) {
    ACE_ERROR((LM_ERROR,
               "Failed to diff iterate over snapshots: the destination snapshot is not "
               "opened.\n"));
    return false;
  }
  // The older rbd_diff_iterate always includes the parent: it serves include_parent
  // alone; only a whole-object walk needs rbd_diff_iterate2.
  const bool extended = whole_object || (include_parent && rbd_diff_iterate2 != nullptr);
  if (extended && AU_CEPH_LACKS_SYMBOL(rbd_diff_iterate2)) return false;
  const char* from = from_snap.empty() ? nullptr : from_snap.c_str();
  void* arg = const_cast<Diff_Callback*>(&cb);
  const int r = extended ? rbd_diff_iterate2(image_of(ctx), from, offset, length, include_parent,
                                             whole_object, diff_iterate_cb, arg)
                         : rbd_diff_iterate(image_of(ctx), from, offset, length, diff_iterate_cb,
                                            arg);
  if (r != 0) {
    POSIX_Error text;
    ACE_ERROR((LM_ERROR,
               "Failed to diff iterate over the desired extends %Q-%Q from snap(%s): code %d, "
               "msg %s.\n",
               offset, length, from_snap.c_str(), -r, error_text(r, text)));
    return false;
  }
  return true;
}

bool Ceph_Snapshot::get_changed_blocks(Ceph_Context& ctx, Basic_String_Arg<char> from_snap,
                                       Blocks& blocks, int power_of_2, Range range,
                                       bool ignore_file_hole, Cancel_Callback cancel_callback,
                                       bool include_parent, bool whole_object) {
  if (AU_FAILS_IF(power_of_2, >, MAX_CHANGED_BLOCK_POWER)) return false;
  if (AU_FAILS_IF(power_of_2, <, MIN_CHANGED_BLOCK_POWER)) return false;
  if (range.length == 0) {
    Snapshot_Stat info;
    if (!stat(ctx, info)) return false;
    range.length = info.size;
  }
  const uint64_t size = range.length;
  if (AU_FAILS_IF(size, <=, 0)) return false;

  const uint64_t chunk_size = uint64_t(1) << power_of_2;
  // Single-bit tests on purpose: the value ANDed with the chunk size itself.
  const uint64_t offset = range.offset;
  if (AU_FAILS_IF(offset & chunk_size, !=, 0)) return false;
  if (AU_FAILS_IF(size & chunk_size, !=, 0)) return false;

  const uint64_t range_end = range.offset + range.length;
  const Diff_Callback on_extent = [&](uint64_t ofs, uint64_t len, int exists) -> int {
    if (cancel_callback && cancel_callback()) {
      ACE_ERROR((LM_ERROR, "Bitmap iterate callback cancelled.\n"));
      return 0;
    }
    if (exists == 0 && ignore_file_hole) return 1;
    if (ofs < range.offset || ofs >= range_end || ofs + len > range_end) {
      ACE_ERROR((LM_ERROR, "Bitmap iterate callback's offset %Q out of range [%Q, %Q).\n", ofs,
                 range.offset, range.length));
      return 0;
    }
    blocks.push_back(chunk_aligned_block(ofs, len, chunk_size));
    return 1;
  };
  if (!diff_iterate(ctx, from_snap, on_extent, range.offset, range.length, include_parent,
                    whole_object)) {
    return false;
  }
  sort_and_merge_blocks(blocks);
  return true;
}

bool Ceph_Snapshot::diff_iterate(const Diff_Callback& cb) {
  Snapshot_Stat info;
  if (!stat(ctx_, info)) {
    ACE_ERROR((LM_ERROR, "Failed to iterate over snapshot '%s': can't stat its size.\n",
               snapshot_name_.c_str()));
    return false;
  }
  return diff_iterate(ctx_, Basic_String_Arg<char>(), cb, 0, info.size, true, false);
}

bool Ceph_Snapshot::diff_iterate(const std::string& from_snap, const Diff_Callback& cb,
                                 uint64_t offset, uint64_t length) {
  if (length == 0) {
    Snapshot_Stat info;
    if (!stat(ctx_, info)) {
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
  return diff_iterate(ctx_, from_snap, cb, offset, length, true, false);
}

bool Ceph_Snapshot::get_changed_blocks(const std::string& from_snap, Blocks& blocks,
                                       int power_of_2, Range range, bool ignore_file_hole,
                                       Cancel_Callback cancel_callback, bool include_parent,
                                       bool whole_object) {
  return get_changed_blocks(ctx_, from_snap, blocks, power_of_2, range, ignore_file_hole,
                            std::move(cancel_callback), include_parent, whole_object);
}

bool Ceph_Snapshot::get_allocated_blocks(Blocks& blocks, int power_of_2, Range range,
                                         bool ignore_file_hole, Cancel_Callback cancel_callback) {
  return get_changed_blocks(ctx_, Basic_String_Arg<char>(), blocks, power_of_2, range,
                            ignore_file_hole, std::move(cancel_callback), false, false);
}

// ---- Data ----

int Ceph_Snapshot::read(Ceph_Context& ctx, uint64_t offset, uint64_t length, char* buf,
                        int op_flags) {
  if (AU_IS_NULL(ctx.img_ctx_)) return -EINVAL;
  if (op_flags != 0 && AU_CEPH_LACKS_SYMBOL(rbd_read2)) return -EOPNOTSUPP;
  if (rbd_read2 != nullptr)
    return static_cast<int>(rbd_read2(image_of(ctx), offset, length, buf, op_flags));
  return static_cast<int>(rbd_read(image_of(ctx), offset, length, buf));
}

int Ceph_Snapshot::write(Ceph_Context& ctx, uint64_t offset, uint64_t length, const char* buf,
                         int op_flags) {
  if (AU_IS_NULL(ctx.img_ctx_)) return -EINVAL;
  if (op_flags != 0 && AU_CEPH_LACKS_SYMBOL(rbd_write2)) return -EOPNOTSUPP;
  if (rbd_write2 != nullptr)
    return static_cast<int>(rbd_write2(image_of(ctx), offset, length, buf, op_flags));
  return static_cast<int>(rbd_write(image_of(ctx), offset, length, buf));
}

bool Ceph_Snapshot::flush(Ceph_Context& ctx) {
  if (!ctx.img_ctx_) return false;
  return rbd_flush(image_of(ctx)) == 0;
}

int Ceph_Snapshot::read(uint64_t offset, uint64_t length, char* buf, int op_flags) {
  return read(ctx_, offset, length, buf, op_flags);
}

int Ceph_Snapshot::write(uint64_t offset, uint64_t length, const char* buf, int op_flags) {
  return write(ctx_, offset, length, buf, op_flags);
}

bool Ceph_Snapshot::flush() { return flush(ctx_); }

// ---- Image properties ----

bool Ceph_Snapshot::stat(Ceph_Context& ctx, Snapshot_Stat& out) {
  if (!ctx.img_ctx_) {
    ACE_ERROR((LM_ERROR, "Failed to stat image or snapshot: it wasn't opened.\n"));
    return false;
  }
  out = Snapshot_Stat();
  rbd_image_info_t info;
  std::memset(&info, 0, sizeof info);
  const int r = rbd_stat(image_of(ctx), &info, sizeof info);
  if (r < 0) {
    POSIX_Error text;
    ACE_ERROR((LM_ERROR, "Failed to state the image or snapshot: code %d, msg %s.\n", -r,
               error_text(r, text)));
    return false;
  }
  AU_CEPH_IGNORE_DEPRECATED_BEGIN
  out.order = info.order;
  out.size = info.size;
  out.obj_size = info.obj_size;
  out.num_objs = info.num_objs;
  out.parent_pool = info.parent_pool;
  out.block_name_prefix.assign(info.block_name_prefix,
                               strnlen(info.block_name_prefix, sizeof info.block_name_prefix));
  out.parent_name.assign(info.parent_name, strnlen(info.parent_name, sizeof info.parent_name));
  AU_CEPH_IGNORE_DEPRECATED_END
  return true;
}

uint64_t Ceph_Snapshot::size(Ceph_Context& ctx) {
  if (AU_IS_NULL(ctx.img_ctx_)) return 0;
  uint64_t bytes = 0;
  const int r = rbd_get_size(image_of(ctx), &bytes);
  if (r < 0) {
    POSIX_Error text;
    ACE_ERROR((LM_ERROR, "Failed to get size: code %d, msg %s.\n", -r, error_text(r, text)));
    return static_cast<uint64_t>(-1);
  }
  return bytes;
}

bool Ceph_Snapshot::get_features(Ceph_Context& ctx, uint64_t& features) {
  if (AU_IS_NULL(ctx.img_ctx_)) return false;
  const int r = rbd_get_features(image_of(ctx), &features);
  if (r < 0) {
    POSIX_Error text;
    ACE_ERROR((LM_ERROR, "Failed to get image features: code %d, msg %s.\n", -r,
               error_text(r, text)));
    return false;
  }
  return true;
}

int Ceph_Snapshot::update_features(Ceph_Context& ctx, uint64_t features, bool enabled) {
  if (AU_IS_NULL(ctx.img_ctx_)) return -1;
  const int r = rbd_update_features(image_of(ctx), features, enabled ? 1 : 0);
  if (r < 0) {
    POSIX_Error text;
    ACE_ERROR((LM_ERROR, "Failed to set image features: code %d, msg %s.\n", -r,
               error_text(r, text)));
    return -1;
  }
  return 0;
}

uint64_t Ceph_Snapshot::get_stripe_unit(Ceph_Context& ctx) {
  if (AU_IS_NULL(ctx.img_ctx_)) return 0;
  uint64_t unit = 0;
  const int r = rbd_get_stripe_unit(image_of(ctx), &unit);
  if (r < 0) {
    POSIX_Error text;
    ACE_ERROR((LM_ERROR, "Failed to get stripe unit: code %d, msg %s.\n", -r,
               error_text(r, text)));
    return 0;
  }
  return unit;
}

uint64_t Ceph_Snapshot::get_stripe_count(Ceph_Context& ctx) {
  if (AU_IS_NULL(ctx.img_ctx_)) return 0;
  uint64_t count = 0;
  const int r = rbd_get_stripe_count(image_of(ctx), &count);
  if (r < 0) {
    POSIX_Error text;
    ACE_ERROR((LM_ERROR, "Failed to get stripe count: code %d, msg %s.\n", -r,
               error_text(r, text)));
    return 0;
  }
  return count;
}

std::string Ceph_Snapshot::get_block_name_prefix(Ceph_Context& ctx) {
  if (AU_IS_NULL(ctx.img_ctx_)) return std::string();
  if (AU_CEPH_LACKS_SYMBOL(rbd_get_block_name_prefix)) return std::string();
  // librbd answers -ERANGE without the needed length; the object prefix ("rbd_data." and
  // the image id) fits the second size, which bounds it generously.
  std::string prefix(RBD_MAX_BLOCK_NAME_SIZE, '\0');
  int r = rbd_get_block_name_prefix(image_of(ctx), &prefix[0], prefix.size());
  if (r == -ERANGE) {
    prefix.assign(RBD_MAX_IMAGE_NAME_SIZE, '\0');
    r = rbd_get_block_name_prefix(image_of(ctx), &prefix[0], prefix.size());
  }
  if (r < 0) {
    POSIX_Error text;
    ACE_ERROR((LM_ERROR, "Failed to get block name prefix: code %d, msg %s.\n", -r,
               error_text(r, text)));
    return std::string();
  }
  prefix.resize(strnlen(prefix.c_str(), prefix.size()));
  return prefix;
}

bool Ceph_Snapshot::get_group(Ceph_Context& ctx, Group_Info& group) {
  if (AU_IS_NULL(ctx.img_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_get_group)) return false;
  rbd_group_info_t info;
  std::memset(&info, 0, sizeof info);
  const int r = rbd_get_group(image_of(ctx), &info, sizeof info);
  if (r < 0) {
    POSIX_Error text;
    ACE_ERROR((LM_ERROR, "Failed to get group info: code %d, msg %s.\n", -r,
               error_text(r, text)));
    return false;
  }
  group.pool_id = static_cast<uint64_t>(info.pool);
  group.name = info.name != nullptr ? info.name : "";
  if (rbd_group_info_cleanup != nullptr)
    rbd_group_info_cleanup(&info, sizeof info);
  else
    std::free(info.name);
  return true;
}

bool Ceph_Snapshot::stat(Snapshot_Stat& out) { return stat(ctx_, out); }
uint64_t Ceph_Snapshot::size() { return size(ctx_); }
bool Ceph_Snapshot::get_features(uint64_t& features) { return get_features(ctx_, features); }
int Ceph_Snapshot::update_features(uint64_t features, bool enabled) {
  return update_features(ctx_, features, enabled);
}
uint64_t Ceph_Snapshot::get_stripe_unit() { return get_stripe_unit(ctx_); }
uint64_t Ceph_Snapshot::get_stripe_count() { return get_stripe_count(ctx_); }
std::string Ceph_Snapshot::get_block_name_prefix() { return get_block_name_prefix(ctx_); }
bool Ceph_Snapshot::get_group(Group_Info& group) { return get_group(ctx_, group); }

}  // namespace ceph
