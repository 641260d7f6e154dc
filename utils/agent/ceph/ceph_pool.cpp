#include "utils/agent/ceph/ceph_pool.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "framework/log/check.h"
#include "framework/log/trace.h"
#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_error.h"
#include "utils/agent/ceph/ceph_group.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_snapshot.h"
#include "utils/agent/ceph/ceph_symbols.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/rbd_handle.h"
#include "utils/agent/ceph/sized_call.h"

namespace ceph {

Ceph_Pool::Ceph_Pool(Ceph_Context ctx) : ctx_(std::move(ctx)) {}

void Ceph_Pool::close_pool() {
  ctx_.img_ctx_.reset();
  ctx_.io_ctx_.reset();
  ctx_.ctx_.reset();
}

// ---- images ----

bool Ceph_Pool::list_image(std::vector<Image_Spec>& images) {
  if (!ctx_.io_ctx_) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to list images of the pool '%s': io context wasn't opened.\n"),
               pool_name_.c_str()));
    return false;
  }
  if (rbd_list2 != nullptr && rbd_image_spec_list_cleanup != nullptr) return list_image2(images);

  size_t size = 0;
  int r = rbd_list(*ctx_.io_ctx_, nullptr, &size);
  if (r < 0 && r != -ERANGE) {
    const Ceph_Error e(r);
    errno = -r;
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list images of the pool '%s': code %d, msg %m.\n"),
               pool_name_.c_str(), e.code, e.text()));
    return false;
  }
  std::vector<char> buf(size + 1, '\0');
  r = rbd_list(*ctx_.io_ctx_, buf.data(), &size);
  if (r < 0) {
    const Ceph_Error e(r);
    errno = -r;
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list images of the pool '%s': code %d, msg %m.\n"),
               pool_name_.c_str(), e.code, e.text()));
    return false;
  }
  const char* end = buf.data() + std::min(size, buf.size() - 1);
  for (const char* name = buf.data(); name < end;) {
    Image_Spec listed_image;
    listed_image.name = name;  // the extra NUL at the end bounds the last name
    name += listed_image.name.size() + 1;
    images.push_back(std::move(listed_image));
  }
  return true;
}

bool Ceph_Pool::list_image2(std::vector<Image_Spec>& images) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_list2)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_image_spec_list_cleanup)) return false;
  if (!ctx_.io_ctx_) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to list images of the pool '%s': io context wasn't opened.\n"),
               pool_name_.c_str()));
    return false;
  }
  std::vector<rbd_image_spec_t> listed;
  size_t count = 16;
  const int r = call_with_room(
      [&] { return rbd_list2(*ctx_.io_ctx_, room_for(listed, count), &count); });
  if (r < 0) {
    const Ceph_Error e(r);
    errno = -r;
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list images of the pool '%s': code %d, msg %m.\n"),
               pool_name_.c_str(), e.code, e.text()));
    return false;
  }
  images.reserve(images.size() + count);
  for (size_t i = 0; i < count; ++i) {
    Image_Spec listed_image;
    if (listed[i].id != nullptr) listed_image.id = listed[i].id;
    if (listed[i].name != nullptr) listed_image.name = listed[i].name;
    images.push_back(std::move(listed_image));
  }
  rbd_image_spec_list_cleanup(listed.data(), count);
  return true;
}

bool Ceph_Pool::open_image(const std::string& name, Ceph_Image& image, bool read_only) {
  return rbd_handle::open_image(ctx_, pool_name_, name, read_only, image);
}

bool Ceph_Pool::open_snapshot(const std::string& img_name, const std::string& snap_name,
                              Ceph_Snapshot& snap, bool read_only, int* error) {
  return rbd_handle::open_snapshot(ctx_, pool_name_, img_name, snap_name, read_only, snap, error);
}

bool Ceph_Pool::new_image(const std::string& name, unsigned long size, Ceph_Image& image,
                          unsigned long features, int order, unsigned long stripe_unit,
                          unsigned long stripe_count, bool read_only) {
  if (!ctx_.io_ctx_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create new image: target pool is not opened.\n")));
    return false;
  }
  // No "missing symbol" line: a librbd without rbd_create3 simply cannot create images.
  const int r = rbd_create3 == nullptr ? -EOPNOTSUPP
                                       : rbd_create3(*ctx_.io_ctx_, name.c_str(), size, features,
                                                     &order, stripe_unit, stripe_count);
  if (r != 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create image '%s': code %d, msg %s.\n"), name.c_str(),
               r, e.text()));
    return false;
  }
  return open_image(name, image, read_only);
}

namespace {

// "<pool>/<group>" of the group that holds `img_name`, or "" when that cannot be told.
std::string group_of_image(Ceph_Pool& pool, const std::string& img_name) {
  Ceph_Image image;
  Group_Info group;
  if (!pool.open_image(img_name, image, false) || !image.get_group(group)) return "";
  Ceph_Pool group_pool;
  std::string group_pool_name;
  if (!open_pool_by_id(pool.context(), group.pool_id, group_pool, nullptr) ||
      !group_pool.get_pool_name(group_pool_name))
    return "";
  return group_pool_name + "/" + group.name;
}

}  // namespace

bool Ceph_Pool::remove_image(const std::string& img_name, bool purge_snapshots) {
  if (AU_IS_EMPTY(img_name)) return false;
  if (!ctx_.io_ctx_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove image '%s': target pool %s is not opened.\n"),
               img_name.c_str(), pool_name_.c_str()));
    return false;
  }
  int r = rbd_remove(*ctx_.io_ctx_, img_name.c_str());
  AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t called rbd_remove::(%@, %s) = %d\n"), *ctx_.io_ctx_,
                  img_name.c_str(), r));
  if (r >= 0) return true;
  if (r == -EMLINK) {
    const std::string group = group_of_image(*this, img_name);
    if (!group.empty()) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove image '%s': image is in group %s.\n"),
                 img_name.c_str(), group.c_str()));
      return false;
    }
  } else if (r == -EBUSY) {
    ACE_ERROR(
        (LM_ERROR, ACE_TEXT("Failed to remove image '%s': image is busy.\n"), img_name.c_str()));
    return false;
  } else if (r == -ENOTEMPTY) {
    if (!purge_snapshots) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove image '%s': image is not empty.\n"),
                 img_name.c_str()));
      return false;
    }
    ACE_ERROR((LM_WARNING, ACE_TEXT("Image '%s' is not empty, purging its snapshots.\n"),
               img_name.c_str()));
    {
      Ceph_Image image;
      if (!open_image(img_name, image, false) || !image.purge_snapshots(true)) return false;
    }  // closed again before the removal, which refuses an image with watchers
    r = rbd_remove(*ctx_.io_ctx_, img_name.c_str());
    AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t retried call rbd_remove::(%@, %s) = %d\n"),
                    *ctx_.io_ctx_, img_name.c_str(), r));
    if (r >= 0) return true;
  }
  const Ceph_Error e(r);
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove image '%s': code %d, msg %s.\n"),
             img_name.c_str(), e.code, e.text()));
  return false;
}

// ---- groups ----

bool Ceph_Pool::fill_group(const std::string& group_name, Ceph_Group& group) {
  group.pool_name_ = pool_name_;
  group.group_name_ = group_name;
  group.ctx_ = ctx_;
  group.ctx_.img_ctx_.reset();
  return true;
}

bool Ceph_Pool::new_group(const std::string& group_name, Ceph_Group& group) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_create)) return false;
  if (AU_IS_EMPTY(group_name)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  const int r = rbd_group_create(*ctx_.io_ctx_, group_name.c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create group '%s': code %d, msg %s.\n"),
               group_name.c_str(), e.code, e.text()));
    return false;
  }
  return fill_group(group_name, group);
}

bool Ceph_Pool::new_group(const std::string& group_name, const std::vector<std::string>& images,
                          Ceph_Group& group) {
  if (!new_group(group_name, group)) return false;
  for (const std::string& image : images) {
    if (group.add_image(image)) continue;
    // All or nothing: a group missing some of the asked images is of no use.
    remove_group(group_name);
    return false;
  }
  return true;
}

bool Ceph_Pool::open_group(const std::string& group_name, Ceph_Group& group) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_get_group)) return false;
  if (AU_IS_EMPTY(group_name)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  std::set<std::string> groups;
  if (!list_group(groups)) return false;
  if (groups.count(group_name) == 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open group '%s': group doesn't exist.\n"),
               group_name.c_str()));
    return false;
  }
  return fill_group(group_name, group);
}

bool Ceph_Pool::list_group(std::set<std::string>& groups) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_list)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  std::vector<char> names;
  size_t size = 256;
  const int r = call_with_room(
      [&] { return rbd_group_list(*ctx_.io_ctx_, room_for(names, size), &size); });
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list groups: code %d, msg %s.\n"), e.code, e.text()));
    return false;
  }
  for (std::string& name : split_nul_terminated(
           names.data(), names.data() + std::min(static_cast<size_t>(r), names.size())))
    groups.insert(std::move(name));
  return true;
}

bool Ceph_Pool::remove_group(const std::string& group_name) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_remove)) return false;
  if (AU_IS_EMPTY(group_name)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  // librbd reports success for a group that is not there; tell the caller instead.
  std::set<std::string> groups;
  if (list_group(groups) && groups.count(group_name) == 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove group '%s': group doesn't exist.\n"),
               group_name.c_str()));
    return false;
  }
  const int r = rbd_group_remove(*ctx_.io_ctx_, group_name.c_str());
  if (r == -ENOENT) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove group '%s': group doesn't exist.\n"),
               group_name.c_str()));
    return false;
  }
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove group '%s': code %d, msg %s.\n"),
               group_name.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

// ---- pool name and metadata ----

bool Ceph_Pool::get_pool_name(std::string& name) {
  if (!ctx_.io_ctx_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get pool name: io context wasn't opened.\n")));
    return false;
  }
  // librados does not say the room it needs: each round offers four times more.
  std::vector<char> buf;
  size_t room = 64;
  const int r = call_with_room([&] {
    room *= 4;
    return rados_ioctx_get_pool_name(*ctx_.io_ctx_, room_for(buf, room),
                                     static_cast<unsigned>(room));
  });
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR(
        (LM_ERROR, ACE_TEXT("Failed to get pool name: code %d, msg %s.\n"), e.code, e.text()));
    return false;
  }
  name.assign(buf.data(), strnlen(buf.data(), std::min(static_cast<size_t>(r), buf.size())));
  return true;
}

bool Ceph_Pool::list_metadatas(std::map<std::string, std::string>& metadatas) {
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_pool_metadata_list)) return false;
  metadatas.clear();
  const int r = list_key_values(
      [&](char* keys, size_t* keys_len, char* values, size_t* values_len) {
        return rbd_pool_metadata_list(*ctx_.io_ctx_, "", 0, keys, keys_len, values, values_len);
      },
      metadatas);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list metadatas of pool '%s': code %d, msg %s.\n"),
               pool_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool Ceph_Pool::get_metadata(const std::string& key, std::string& value) {
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_pool_metadata_get)) return false;
  char probe = '\0';
  size_t val_len = 0;
  int r = rbd_pool_metadata_get(*ctx_.io_ctx_, key.c_str(), &probe, &val_len);
  if (r < 0 && r != -ERANGE) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get metadata of pool '%s': code %d, msg %s.\n"),
               pool_name_.c_str(), e.code, e.text()));
    return false;
  }
  if (AU_FAILS_IF(val_len, <=, 0)) return false;
  std::vector<char> buf(val_len, '\0');
  r = rbd_pool_metadata_get(*ctx_.io_ctx_, key.c_str(), buf.data(), &val_len);
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get metadata of pool '%s': code %d, msg %s.\n"),
               pool_name_.c_str(), e.code, e.text()));
    return false;
  }
  value.assign(buf.data(), strnlen(buf.data(), buf.size()));
  return true;
}

bool Ceph_Pool::set_metadata(const std::string& key, const std::string& value) {
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_pool_metadata_set)) return false;
  const int r = rbd_pool_metadata_set(*ctx_.io_ctx_, key.c_str(), value.c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to set metadata of pool '%s': code %d, msg %s.\n"),
               pool_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool Ceph_Pool::remove_metadata(const std::string& key) {
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  if (AU_CEPH_LACKS_SYMBOL(rbd_pool_metadata_remove)) return false;
  const int r = rbd_pool_metadata_remove(*ctx_.io_ctx_, key.c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove metadata of pool '%s': code %d, msg %s.\n"),
               pool_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

}  // namespace ceph
