#include "utils/agent/ceph/ceph_image.h"

#include <ace/Log_Msg.h>
#include <rbd/librbd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "framework/log/check.h"
#include "framework/log/trace.h"
#include "utils/agent/ceph/ceph_error.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/rbd_handle.h"
#include "utils/agent/ceph/sized_call.h"
#include "utils/agent/ceph/uri_components.h"

namespace ceph {

namespace {

// librbd's force flags for snapshot removal: unprotect, then flatten children.
constexpr int SNAP_REMOVE_FORCE = RBD_SNAP_REMOVE_UNPROTECT | RBD_SNAP_REMOVE_FLATTEN;
// Zeroing walks the range forward: hint sequential access (8) to the OSDs.
constexpr int ZEROING_OP_FLAGS = LIBRADOS_OP_FLAG_FADVISE_SEQUENTIAL;
constexpr uint64_t ZERO_BUFFER_SIZE = 512;

rbd_image_t image_of(const Ceph_Context& ctx) { return static_cast<rbd_image_t>(*ctx.img_ctx_); }

}  // namespace

int progress_cb(uint64_t offset, uint64_t total, void* arg) {
  if (AU_IS_NULL(arg)) return -EINVAL;
  return (*static_cast<Progress_Callback*>(arg))(offset, total);
}

int dummy_progress_fn(uint64_t, uint64_t, void*) { return 0; }

Ceph_Image::Ceph_Image(Ceph_Context ctx) : ctx_(std::move(ctx)) {}

void Ceph_Image::close_image() { ctx_ = Ceph_Context(); }

std::string Ceph_Image::uri() const {
  URI_Components components;
  components.type = URI_Components::IMAGE;
  components.pool = pool_name_;
  components.img = image_name_;
  return components.to_uri();
}

// ---- Snapshots ----

bool Ceph_Image::list_snapshot(std::vector<Snapshot_Info>& snapshots) {
  if (!ctx_.img_ctx_) {
    ACE_ERROR((LM_ERROR, "Failed to list snapshots of image '%s': the image wasn't opened.\n",
               image_name_.c_str()));
    return false;
  }
  // librbd counts a terminating entry: the first answer is -ERANGE with max >= 1.
  int max = 0;
  int r = rbd_snap_list(image_of(ctx_), nullptr, &max);
  if (r == -ERANGE && max > 0) {
    std::vector<rbd_snap_info_t> infos(static_cast<size_t>(max));
    r = rbd_snap_list(image_of(ctx_), infos.data(), &max);
    if (r >= 0) {
      const size_t count = std::min(static_cast<size_t>(r), infos.size() - 1);
      snapshots.resize(count);
      for (size_t i = 0; i < count; ++i) {
        snapshots[i].id = infos[i].id;
        snapshots[i].size = infos[i].size;
        snapshots[i].name = infos[i].name != nullptr ? infos[i].name : "";
      }
      rbd_snap_list_end(infos.data());
      return true;
    }
  } else if (r == -ERANGE || r >= 0) {
    r = -ERANGE;  // an answer that does not size the list
  }
  const Ceph_Error e(r);
  ACE_ERROR((LM_ERROR, "Failed to list snapshots of image '%s': code %d, msg %s.\n",
             image_name_.c_str(), e.code, e.text()));
  return false;
}

bool Ceph_Image::open_snapshot(const std::string& snap_name, Ceph_Snapshot& snapshot,
                               bool read_only) {
  return rbd_handle::open_snapshot(ctx_, pool_name_, image_name_, snap_name, read_only, snapshot,
                                   nullptr);
}

bool Ceph_Image::new_snapshot(const std::string& snap_name, Ceph_Snapshot& snapshot) {
  if (AU_IS_EMPTY(snap_name) || AU_IS_NULL(ctx_.img_ctx_)) return false;
  const int r = rbd_snap_create(image_of(ctx_), snap_name.c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to create snapshot %s for image %s: err %d, msg %s.\n",
               snap_name.c_str(), image_name_.c_str(), e.code, e.text()));
    return false;
  }
  return open_snapshot(snap_name, snapshot, true);
}

bool Ceph_Image::is_snapshot_exist(const std::string& snap_name, bool& exists) {
  if (AU_IS_EMPTY(snap_name) || AU_IS_NULL(ctx_.img_ctx_)) return false;
  exists = false;
  int r = 0;
  if (rbd_snap_exists != nullptr) {
    bool found = false;
    r = rbd_snap_exists(image_of(ctx_), snap_name.c_str(), &found);
    if (r >= 0) exists = found;
  } else {
    // Older librbd: try to open it.
    Ceph_Snapshot probe;
    r = -EINVAL;  // unless the opener reports librbd's answer
    if (rbd_handle::open_snapshot(ctx_, pool_name_, image_name_, snap_name, true, probe, &r))
      exists = true, r = 0;
    else if (r == -ENOENT)
      r = 0;
  }
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR,
               "Failed to check whether snapshot %s of image '%s' exists: code %d, msg %s.\n",
               snap_name.c_str(), image_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool Ceph_Image::rollback(const std::string& snap_name, Progress_Callback progress) {
  if (AU_IS_EMPTY(snap_name) || AU_IS_NULL(ctx_.img_ctx_)) return false;
  int r;
  if (progress) {
    if (AU_CEPH_LACKS_SYMBOL(rbd_snap_rollback_with_progress)) return false;
    r = rbd_snap_rollback_with_progress(image_of(ctx_), snap_name.c_str(), progress_cb, &progress);
  } else {
    r = rbd_snap_rollback(image_of(ctx_), snap_name.c_str());
  }
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to rollback image '%s' to snapshot %s: err %d, msg %s.\n",
               image_name_.c_str(), snap_name.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool Ceph_Image::purge_snapshots(bool force) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  std::vector<Snapshot_Info> snapshots;
  if (!list_snapshot(snapshots)) {
    ACE_ERROR((LM_ERROR, "Failed to purge snapshots of image '%s': failed to list snapshots.\n",
               image_name_.c_str()));
    return false;
  }
  // Decide on every snapshot before removing any, so a protected one leaves all in place.
  std::vector<const std::string*> doomed;
  for (const Snapshot_Info& snap : snapshots) {
    if (get_snap_namespace_type(snap.id) > 0) continue;  // group, trash, mirror: not ours
    if (snap_is_protected(snap.name) && !force) {
      ACE_ERROR((LM_ERROR, "Failed to purge snapshots of image '%s': snapshot %s is protected.\n",
                 image_name_.c_str(), snap.name.c_str()));
      return false;
    }
    doomed.push_back(&snap.name);
  }
  for (const std::string* name : doomed) {
    if (!remove_snapshot(*name, force ? SNAP_REMOVE_FORCE : 0)) {
      ACE_ERROR((LM_ERROR,
                 "Failed to purge snapshots of image '%s': failed to remove snapshot %s.\n",
                 image_name_.c_str(), name->c_str()));
      return false;
    }
  }
  return true;
}

bool Ceph_Image::remove_snapshot(const std::string& snap_name, int flags) {
  if (AU_IS_EMPTY(snap_name) || AU_IS_NULL(ctx_.img_ctx_)) return false;
  if (flags != 0 && AU_CEPH_LACKS_SYMBOL(rbd_snap_remove2)) return false;
  const int r = rbd_snap_remove2 != nullptr
                    ? rbd_snap_remove2(image_of(ctx_), snap_name.c_str(),
                                       static_cast<uint32_t>(flags), dummy_progress_fn, nullptr)
                    : rbd_snap_remove(image_of(ctx_), snap_name.c_str());
  AU_DEBUG_TRACE((LM_DEBUG, "Thread %t called rbd_snap_remove(%@, \"%s\") = %d\n", *ctx_.img_ctx_,
                  snap_name.c_str(), r));
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to remove snapshot %s for image %s: err %d, msg %s.\n",
               snap_name.c_str(), image_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool Ceph_Image::snap_is_protected(const std::string& snap_name) {
  if (AU_IS_EMPTY(snap_name) || AU_IS_NULL(ctx_.img_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_snap_is_protected)) return false;
  int is_protected = 0;
  const int r = rbd_snap_is_protected(image_of(ctx_), snap_name.c_str(), &is_protected);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR,
               "Failed to check whether snapshot %s of image '%s' is protected: code %d, msg "
               "%s.\n",
               snap_name.c_str(), image_name_.c_str(), e.code, e.text()));
    return false;
  }
  return is_protected != 0;
}

int Ceph_Image::get_snap_namespace_type(uint64_t snap_id) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return -EINVAL;
  if (AU_CEPH_LACKS_SYMBOL(rbd_snap_get_namespace_type)) return -EOPNOTSUPP;
  rbd_snap_namespace_type_t type = RBD_SNAP_NAMESPACE_TYPE_USER;
  const int r = rbd_snap_get_namespace_type(image_of(ctx_), snap_id, &type);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR,
               "Failed to get namespace type of snapshot %Q of image '%s': code %d, "
               "msg %s.\n",
               snap_id, image_name_.c_str(), e.code, e.text()));
    return r;
  }
  return static_cast<int>(type);
}

// ---- Size and changed extents ----

bool Ceph_Image::stat(Snapshot_Stat& out) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  return rbd_handle::stat(ctx_, out);
}

uint64_t Ceph_Image::size() {
  if (AU_IS_NULL(ctx_.img_ctx_)) return 0;
  return rbd_handle::size(ctx_);
}

bool Ceph_Image::diff_iterate(const Diff_Callback& cb) {
  Snapshot_Stat info;
  if (!stat(info)) {
    ACE_ERROR((LM_ERROR, "Unable to iterate over the image '%s': failed to obtain image size.\n",
               image_name_.c_str()));
    return false;
  }
  return rbd_handle::diff_iterate(ctx_, Basic_String_Arg<char>(), cb, 0, info.size, true, false);
}

bool Ceph_Image::get_changed_blocks(const std::string& from_snap, Blocks& blocks, int power_of_2,
                                    Range range, bool ignore_file_hole,
                                    Cancel_Callback cancel_callback) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  return rbd_handle::get_changed_blocks(ctx_, from_snap, blocks, power_of_2, range,
                                        ignore_file_hole, std::move(cancel_callback), true, false);
}

bool Ceph_Image::resize(uint64_t size, bool allow_shrink, Progress_Callback progress) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  // rbd_resize always lets an image shrink and reports no progress.
  if ((!allow_shrink || progress) && AU_CEPH_LACKS_SYMBOL(rbd_resize2)) return false;
  int r;
  if (rbd_resize2 != nullptr) {
    r = progress ? rbd_resize2(image_of(ctx_), size, allow_shrink, progress_cb, &progress)
                 : rbd_resize2(image_of(ctx_), size, allow_shrink, dummy_progress_fn, nullptr);
  } else {
    r = rbd_resize(image_of(ctx_), size);
  }
  AU_DEBUG_TRACE((LM_DEBUG, "Thread %t called rbd_resize(%@, %Q) = %d\n", *ctx_.img_ctx_, size, r));
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to resize image '%s' to %Q: err %d, msg %s.\n",
               image_name_.c_str(), size, e.code, e.text()));
    return false;
  }
  return true;
}

// ---- Data ----

int Ceph_Image::read(uint64_t ofs, uint64_t len, char* buf, int op_flags) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return -EINVAL;
  return rbd_handle::read(ctx_, ofs, len, buf, op_flags);
}

int Ceph_Image::write(uint64_t ofs, uint64_t len, const char* buf, int op_flags) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return -EINVAL;
  return rbd_handle::write(ctx_, ofs, len, buf, op_flags);
}

bool Ceph_Image::flush() {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  return rbd_handle::flush(ctx_);
}

int Ceph_Image::write_zeroes(uint64_t ofs, uint64_t len) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return -EINVAL;
  // Only an empty range gets through, on purpose; what follows serves that length.
  if (AU_FAILS_IF(len, !=, 0)) return -EINVAL;
  const int op_flags = rbd_write2 != nullptr ? ZEROING_OP_FLAGS : 0;
  if (rbd_write_zeroes != nullptr)
    return static_cast<int>(rbd_write_zeroes(image_of(ctx_), ofs, len, 0, op_flags));
  if (rbd_writesame != nullptr) {
    static const char ZERO[1] = {0};
    return static_cast<int>(rbd_writesame(image_of(ctx_), ofs, len, ZERO, 1, op_flags));
  }
  return write_zeroes_from_buffer(ofs, len);
}

// Head up to the next 512-byte boundary, whole 512-byte pieces, then the tail. Body and
// tail are measured from `len` and placed after `start`.
int Ceph_Image::write_zeroes_from_buffer(uint64_t ofs, uint64_t len) {
  static const char buf[ZERO_BUFFER_SIZE] = {};
  const int op_flags = rbd_write2 != nullptr ? ZEROING_OP_FLAGS : 0;
  if (len <= ZERO_BUFFER_SIZE) return write(ofs, len, buf, op_flags);
  const uint64_t start = rounding_up_power_2(ofs, ZERO_BUFFER_SIZE);
  const uint64_t body = rounding_down_power_2(len, ZERO_BUFFER_SIZE);
  int64_t total = 0;
  auto put = [&](uint64_t at, uint64_t n) {
    const int r = write(at, n, buf, op_flags);
    if (r >= 0) total += r;
    return r;
  };
  int r = 0;
  if (start > ofs && (r = put(ofs, start - ofs)) < 0) return r;
  for (uint64_t at = start; at < start + body; at += ZERO_BUFFER_SIZE)
    if ((r = put(at, ZERO_BUFFER_SIZE)) < 0) return r;
  if (body < len && (r = put(start + body, len - body)) < 0) return r;
  return static_cast<int>(total);
}

// ---- Layout ----

bool Ceph_Image::get_features(uint64_t& features) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  return rbd_handle::get_features(ctx_, features);
}

int Ceph_Image::update_features(uint64_t features, bool enabled) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return -1;
  return rbd_handle::update_features(ctx_, features, enabled);
}

uint64_t Ceph_Image::get_stripe_unit() {
  if (AU_IS_NULL(ctx_.img_ctx_)) return 0;
  return rbd_handle::get_stripe_unit(ctx_);
}

uint64_t Ceph_Image::get_stripe_count() {
  if (AU_IS_NULL(ctx_.img_ctx_)) return 0;
  return rbd_handle::get_stripe_count(ctx_);
}

bool Ceph_Image::get_group(Group_Info& group) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  return rbd_handle::get_group(ctx_, group);
}

bool Ceph_Image::get_stripe_info(uint64_t& stripe_unit, uint64_t& stripe_count) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  stripe_unit = rbd_handle::get_stripe_unit(ctx_);
  stripe_count = rbd_handle::get_stripe_count(ctx_);
  return stripe_unit != 0 && stripe_count != 0;
}

// ---- Metadata ----

bool Ceph_Image::list_metadatas(std::map<std::string, std::string>& metadatas) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_metadata_list)) return false;
  metadatas.clear();
  const int r = list_key_values(
      [&](char* keys, size_t* keys_len, char* values, size_t* values_len) {
        return rbd_metadata_list(image_of(ctx_), "", 0, keys, keys_len, values, values_len);
      },
      metadatas);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to list metadatas of image '%s': code %d, msg %s.\n",
               image_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool Ceph_Image::get_metadata(const std::string& key, std::string& value) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_metadata_get)) return false;
  size_t val_len = 0;
  int r = rbd_metadata_get(image_of(ctx_), key.c_str(), nullptr, &val_len);
  if (r == 0 || r == -ENOENT) return r == 0;  // nothing to fetch, or no such key
  if (r != -ERANGE) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to get metadata of image '%s': code %d, msg %s.\n",
               image_name_.c_str(), e.code, e.text()));
    return false;
  }
  if (AU_FAILS_IF(val_len, <=, 0)) return false;
  std::string buffer(val_len, '\0');
  r = rbd_metadata_get(image_of(ctx_), key.c_str(), &buffer[0], &val_len);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to get metadata of image '%s': code %d, msg %s.\n",
               image_name_.c_str(), e.code, e.text()));
    return false;
  }
  buffer.resize(strnlen(buffer.c_str(), buffer.size()));
  value = std::move(buffer);
  return true;
}

bool Ceph_Image::set_metadata(const std::string& key, const std::string& value) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  // The getter is tested on purpose: a librbd without it has no usable metadata.
  if (AU_CEPH_LACKS_SYMBOL(rbd_metadata_get)) return false;
  if (rbd_metadata_set == nullptr) {
    ACE_ERROR((LM_ERROR,
               "Failed to set metadata of image '%s': the version of librbd doesn't support the "
               "rbd_metadata_set function.\n",
               image_name_.c_str()));
    return false;
  }
  const int r = rbd_metadata_set(image_of(ctx_), key.c_str(), value.c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to set metadata of image '%s': code %d, msg %s.\n",
               image_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool Ceph_Image::remove_metadata(const std::string& key) {
  if (AU_IS_NULL(ctx_.img_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_metadata_remove)) return false;
  const int r = rbd_metadata_remove(image_of(ctx_), key.c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, "Failed to remove metadata of image '%s': code %d, msg %s.\n",
               image_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

}  // namespace ceph
