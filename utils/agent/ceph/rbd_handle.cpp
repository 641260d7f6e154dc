#include "utils/agent/ceph/rbd_handle.h"

#include <ace/Log_Msg.h>
#include <rbd/librbd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "framework/log/check.h"
#include "framework/log/trace.h"
#include "utils/agent/ceph/ceph_error.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/changed_blocks.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace ceph {

namespace {

rbd_image_t image_of(const Ceph_Context& ctx) { return static_cast<rbd_image_t>(*ctx.img_ctx_); }

// Opens `name` (at `snap_name`, or the head when null) into `slot`: read-only opens skip
// the header watch, so they never make the image busy for a writer or a remover.
int open_rbd_image(void* io, const char* name, void** slot, const char* snap_name, bool read_only) {
  if (read_only && rbd_open_read_only != nullptr)
    return rbd_open_read_only(io, name, slot, snap_name);
  return rbd_open(io, name, slot, snap_name);
}

}  // namespace

int diff_iterate_cb(uint64_t offset, uint64_t length, int exists, void* arg) {
  if (arg == nullptr) return -1;
  const auto& fn = *static_cast<const Diff_Callback*>(arg);
  return fn(offset, length, exists) == 0 ? -1 : 0;
}

namespace rbd_handle {

// ---- Opening ----

bool open_image(const Ceph_Context& pool, const std::string& pool_name, const std::string& name,
                bool read_only, Ceph_Image& image) {
  if (!pool.io_ctx_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Unable to open image '%s': io context wasn't opened.\n"),
               name.c_str()));
    return false;
  }
  Rbd_Image_var slot = make_image_var();
  const int r = open_rbd_image(*pool.io_ctx_, name.c_str(), slot.get(), nullptr, read_only);
  AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t called Image::rbd_open(%@) = %d\n"), *slot, r));
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open image '%s': code %d, msg %s.\n"), name.c_str(),
               e.code, e.text()));
    return false;
  }
  Ceph_Context ctx(pool);
  ctx.img_ctx_ = std::move(slot);
  image.context() = std::move(ctx);
  image.pool_name(pool_name);
  image.image_name(name);
  return true;
}

bool open_snapshot(const Ceph_Context& pool, const std::string& pool_name,
                   const std::string& img_name, const std::string& snap_name, bool read_only,
                   Ceph_Snapshot& snap, int* error) {
  if (error != nullptr) *error = -EINVAL;
  if (AU_IS_EMPTY(img_name)) return false;
  if (AU_IS_EMPTY(snap_name)) return false;
  if (!pool.io_ctx_) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to open snapshot '%s' of image '%s': target pool is not opened.\n"),
               snap_name.c_str(), img_name.c_str()));
    return false;
  }
  Rbd_Image_var slot = make_snapshot_var();
  const int r =
      open_rbd_image(*pool.io_ctx_, img_name.c_str(), slot.get(), snap_name.c_str(), read_only);
  if (error != nullptr) *error = r;
  AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t called Snapshot::rbd_open(%@) = %d\n"), *slot, r));
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open snapshot '%s' of image '%s': code %d, msg %s.\n"),
               snap_name.c_str(), img_name.c_str(), e.code, e.text()));
    return false;
  }
  Ceph_Context ctx(pool);
  ctx.img_ctx_ = std::move(slot);
  snap.context() = std::move(ctx);
  snap.pool_name(pool_name);
  snap.image_name(img_name);
  snap.snapshot_name(snap_name);
  return true;
}

// ---- Changed extents ----

bool diff_iterate(const Ceph_Context& ctx, Basic_String_Arg<char> from_snap,
                  const Diff_Callback& cb, uint64_t offset, uint64_t length, bool include_parent,
                  bool whole_object) {
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
  const int r = extended
                    ? rbd_diff_iterate2(image_of(ctx), from, offset, length, include_parent,
                                        whole_object, diff_iterate_cb, arg)
                    : rbd_diff_iterate(image_of(ctx), from, offset, length, diff_iterate_cb, arg);
  if (r != 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR,
               "Failed to diff iterate over the desired extends %Q-%Q from snap(%s): code %d, "
               "msg %s.\n",
               offset, length, from_snap.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool allocated_extents(const Ceph_Context& ctx, Blocks& blocks) {
  Snapshot_Stat st;
  if (!stat(ctx, st)) return false;  // never "nothing allocated" for a failed query
  const uint64_t length = st.size;
  // Whole objects: cheap with an object map, and "may hold data" is all a caller asks.
  const Diff_Callback keep = [&blocks](uint64_t offset, uint64_t len, int exists) {
    if (exists) blocks.emplace_back(offset, len);
    return 1;
  };
  if (length == 0) return true;
  if (rbd_diff_iterate2 == nullptr || !diff_iterate(ctx, "", keep, 0, length, true, true))
    return false;
  sort_and_merge_blocks(blocks);
  return true;
}

bool get_changed_blocks(const Ceph_Context& ctx, Basic_String_Arg<char> from_snap, Blocks& blocks,
                        int power_of_2, Range range, bool ignore_file_hole,
                        const Cancel_Callback& cancel_callback, bool include_parent,
                        bool whole_object) {
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

// ---- Data ----

int read(const Ceph_Context& ctx, uint64_t offset, uint64_t length, char* buf, int op_flags) {
  if (AU_IS_NULL(ctx.img_ctx_)) return -EINVAL;
  if (op_flags != 0 && AU_CEPH_LACKS_SYMBOL(rbd_read2)) return -EOPNOTSUPP;
  if (rbd_read2 != nullptr)
    return static_cast<int>(rbd_read2(image_of(ctx), offset, length, buf, op_flags));
  return static_cast<int>(rbd_read(image_of(ctx), offset, length, buf));
}

int write(const Ceph_Context& ctx, uint64_t offset, uint64_t length, const char* buf,
          int op_flags) {
  if (AU_IS_NULL(ctx.img_ctx_)) return -EINVAL;
  if (op_flags != 0 && AU_CEPH_LACKS_SYMBOL(rbd_write2)) return -EOPNOTSUPP;
  if (rbd_write2 != nullptr)
    return static_cast<int>(rbd_write2(image_of(ctx), offset, length, buf, op_flags));
  return static_cast<int>(rbd_write(image_of(ctx), offset, length, buf));
}

int64_t zero_range(const Ceph_Context& ctx, uint64_t offset, uint64_t length, int op_flags) {
  if (AU_IS_NULL(ctx.img_ctx_)) return -EINVAL;
  // librbd answers with an int byte count: at most 1 GiB per call, or one buffer's worth.
  static const char zeros[64 << 10] = {};
  const uint64_t step = rbd_write_zeroes != nullptr ? (1u << 30) : sizeof zeros;
  int64_t total = 0;
  for (uint64_t at = offset; at < offset + length; at += step) {
    const uint64_t n = std::min(step, offset + length - at);
    const int r = rbd_write_zeroes != nullptr
                      ? rbd_write_zeroes(image_of(ctx), at, n, 0, op_flags)
                      : write(ctx, at, n, zeros, op_flags);
    if (r < 0) return r;
    total += static_cast<int64_t>(n);
  }
  return total;
}

bool writes_are_copied(const Ceph_Context& ctx) {
  if (!ctx.img_ctx_ || rbd_config_image_list == nullptr ||
      rbd_config_image_list_cleanup == nullptr)
    return false;
  int count = 0;
  if (rbd_config_image_list(image_of(ctx), nullptr, &count) != -ERANGE || count <= 0) return false;
  std::vector<rbd_config_option_t> options(static_cast<size_t>(count));
  if (rbd_config_image_list(image_of(ctx), options.data(), &count) < 0) return false;
  bool copied = false;
  for (int i = 0; i < count; ++i) {
    if (std::strcmp(options[i].name, "rbd_disable_zero_copy_writes") == 0)
      copied = std::strcmp(options[i].value, "true") == 0;
  }
  rbd_config_image_list_cleanup(options.data(), count);
  return copied;
}

bool flush(const Ceph_Context& ctx) {
  if (!ctx.img_ctx_) return false;
  return rbd_flush(image_of(ctx)) == 0;
}

int lock_exclusive(const Ceph_Context& ctx) {
  if (!ctx.img_ctx_) return -EBADF;
  uint64_t features = 0;
  if (rbd_lock_acquire == nullptr || (rbd_get_features(image_of(ctx), &features) == 0 &&
                                      (features & RBD_FEATURE_EXCLUSIVE_LOCK) == 0))
    return 0;
  return rbd_lock_acquire(image_of(ctx), RBD_LOCK_MODE_EXCLUSIVE);
}

// ---- Image properties ----

bool stat(const Ceph_Context& ctx, Snapshot_Stat& out) {
  if (!ctx.img_ctx_) {
    ACE_ERROR((LM_ERROR, "Failed to stat image or snapshot: it wasn't opened.\n"));
    return false;
  }
  out = Snapshot_Stat();
  rbd_image_info_t info;
  std::memset(&info, 0, sizeof info);
  const int r = rbd_stat(image_of(ctx), &info, sizeof info);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR(
        (LM_ERROR, "Failed to state the image or snapshot: code %d, msg %s.\n", e.code, e.text()));
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

uint64_t size(const Ceph_Context& ctx) {
  if (AU_IS_NULL(ctx.img_ctx_)) return 0;
  uint64_t bytes = 0;
  const int r = rbd_get_size(image_of(ctx), &bytes);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to get size: code %d, msg %s.\n", e.code, e.text()));
    return static_cast<uint64_t>(-1);
  }
  return bytes;
}

bool get_features(const Ceph_Context& ctx, uint64_t& features) {
  if (AU_IS_NULL(ctx.img_ctx_)) return false;
  const int r = rbd_get_features(image_of(ctx), &features);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to get image features: code %d, msg %s.\n", e.code, e.text()));
    return false;
  }
  return true;
}

int update_features(const Ceph_Context& ctx, uint64_t features, bool enabled) {
  if (AU_IS_NULL(ctx.img_ctx_)) return -1;
  const int r = rbd_update_features(image_of(ctx), features, enabled ? 1 : 0);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to set image features: code %d, msg %s.\n", e.code, e.text()));
    return -1;
  }
  return 0;
}

uint64_t get_stripe_unit(const Ceph_Context& ctx) {
  if (AU_IS_NULL(ctx.img_ctx_)) return 0;
  uint64_t unit = 0;
  const int r = rbd_get_stripe_unit(image_of(ctx), &unit);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to get stripe unit: code %d, msg %s.\n", e.code, e.text()));
    return 0;
  }
  return unit;
}

uint64_t get_stripe_count(const Ceph_Context& ctx) {
  if (AU_IS_NULL(ctx.img_ctx_)) return 0;
  uint64_t count = 0;
  const int r = rbd_get_stripe_count(image_of(ctx), &count);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to get stripe count: code %d, msg %s.\n", e.code, e.text()));
    return 0;
  }
  return count;
}

std::string get_block_name_prefix(const Ceph_Context& ctx) {
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
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to get block name prefix: code %d, msg %s.\n", e.code, e.text()));
    return std::string();
  }
  prefix.resize(strnlen(prefix.c_str(), prefix.size()));
  return prefix;
}

bool get_group(const Ceph_Context& ctx, Group_Info& group) {
  if (AU_IS_NULL(ctx.img_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_get_group)) return false;
  rbd_group_info_t info;
  std::memset(&info, 0, sizeof info);
  const int r = rbd_get_group(image_of(ctx), &info, sizeof info);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to get group info: code %d, msg %s.\n", e.code, e.text()));
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

}  // namespace rbd_handle
}  // namespace ceph
