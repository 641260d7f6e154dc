#include "utils/agent/ceph/ceph_group.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cerrno>

#include "framework/log/check.h"
#include "utils/agent/ceph/ceph_error.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_symbols.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/rbd_handle.h"
#include "utils/agent/ceph/sized_call.h"
#include "utils/agent/ceph/uri_components.h"

namespace ceph {

namespace {

// The entry sizes librbd checks against its own structures.
constexpr size_t GROUP_SNAP_INFO_SIZE = 16;
static_assert(sizeof(rbd_group_snap_info_t) == GROUP_SNAP_INFO_SIZE, "librbd layout changed");
constexpr size_t GROUP_IMAGE_INFO_SIZE = sizeof(rbd_group_image_info_t);

// The image object's own pool context, checked under the name callers know it by.
bool lacks_pool_context(Ceph_Image& img) {
  return !img.context().io_ctx_ ? AU_CHECK_FRAME_FAILED("img.ctx_.io_ctx_ is NULL") : false;
}

}  // namespace

Ceph_Group::Ceph_Group(bool remove_while_dtor) : remove_while_dtor_(remove_while_dtor) {}

Ceph_Group::~Ceph_Group() {
  if (!remove_while_dtor_ || group_name_.empty() || !ctx_.io_ctx_) return;
  Ceph_Pool pool(ctx_);
  pool.pool_name(pool_name_);
  pool.remove_group(group_name_);
}

bool Ceph_Group::create_snapshot(const std::string& snap_name) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_snap_create)) return false;
  if (AU_IS_EMPTY(snap_name)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  const int r = rbd_group_snap_create(*ctx_.io_ctx_, group_name_.c_str(), snap_name.c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create group snapshot %s: code %d, err %s\n"),
               snap_name.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

namespace {

// A name, or the image part of an image URI: members come from the group's own pool.
std::string image_part(const std::string& image_name) {
  const URI_Components uri(image_name);
  return uri.type == URI_Components::IMAGE ? uri.img : image_name;
}

}  // namespace

bool Ceph_Group::add_image(std::string image_name) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_image_add)) return false;
  if (AU_IS_EMPTY(image_name)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  Ceph_Image image;
  return rbd_handle::open_image(ctx_, pool_name_, image_part(image_name), false, image) &&
         add_image(image);
}

bool Ceph_Group::add_image(Ceph_Image& img) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_image_add)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  if (lacks_pool_context(img)) return false;
  const int r = rbd_group_image_add(*ctx_.io_ctx_, group_name_.c_str(), *img.context().io_ctx_,
                                    img.image_name().c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to add image %s to group %s: code %d, err %s\n"),
               img.image_name().c_str(), group_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool Ceph_Group::remove_image(const std::string& image_name) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_image_remove)) return false;
  if (AU_IS_EMPTY(image_name)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  Ceph_Image image;
  return rbd_handle::open_image(ctx_, pool_name_, image_part(image_name), false, image) &&
         remove_image(image);
}

bool Ceph_Group::remove_image(Ceph_Image& img) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_image_remove)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  if (lacks_pool_context(img)) return false;
  const int r = rbd_group_image_remove(*ctx_.io_ctx_, group_name_.c_str(), *img.context().io_ctx_,
                                       img.image_name().c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to remove image %s from group %s: code %d, err %s\n"),
               img.image_name().c_str(), group_name_.c_str(), e.code, e.text()));
    return false;
  }
  return true;
}

bool Ceph_Group::list_snapshot(std::vector<Group_Snapshot_Info>& snapshots) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_snap_list)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  std::vector<rbd_group_snap_info_t> entries;
  size_t count = 0;
  const int r = call_with_room([&] {
    return rbd_group_snap_list(*ctx_.io_ctx_, group_name_.c_str(), room_for(entries, count),
                               GROUP_SNAP_INFO_SIZE, &count);
  });
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list group snapshots of group %s: code %d, err %s\n"),
               group_name_.c_str(), e.code, e.text()));
    return false;
  }
  count = std::min(count, entries.size());
  snapshots.reserve(snapshots.size() + count);
  for (size_t i = 0; i < count; ++i) {
    Group_Snapshot_Info info;
    info.state = static_cast<int>(entries[i].state);
    if (entries[i].name != nullptr) info.name = entries[i].name;
    snapshots.push_back(std::move(info));
  }
  if (count > 0 && rbd_group_snap_list_cleanup != nullptr)
    rbd_group_snap_list_cleanup(entries.data(), GROUP_SNAP_INFO_SIZE, count);
  return true;
}

bool Ceph_Group::list_image(std::vector<Image_Spec>& images) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_image_list)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  std::vector<rbd_group_image_info_t> entries;
  size_t count = 0;
  const int r = call_with_room([&] {
    return rbd_group_image_list(*ctx_.io_ctx_, group_name_.c_str(), room_for(entries, count),
                                GROUP_IMAGE_INFO_SIZE, &count);
  });
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list images of group %s: code %d, err %s\n"),
               group_name_.c_str(), e.code, e.text()));
    return false;
  }
  count = std::min(count, entries.size());
  images.reserve(images.size() + count);
  for (size_t i = 0; i < count; ++i) {
    Image_Spec listed_image;
    if (entries[i].name != nullptr) listed_image.name = entries[i].name;
    images.push_back(std::move(listed_image));
  }
  if (count > 0 && rbd_group_image_list_cleanup != nullptr)
    rbd_group_image_list_cleanup(entries.data(), GROUP_IMAGE_INFO_SIZE, count);
  return true;
}

bool Ceph_Group::rename(const std::string& new_name) {
  if (AU_CEPH_LACKS_SYMBOL(rbd_group_rename)) return false;
  if (AU_IS_EMPTY(new_name)) return false;
  if (AU_IS_NULL(ctx_.io_ctx_)) return false;
  const int r = rbd_group_rename(*ctx_.io_ctx_, group_name_.c_str(), new_name.c_str());
  if (r < 0) {
    const Ceph_Error e(r);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to rename group %s to %s: code %d, err %s\n"),
               group_name_.c_str(), new_name.c_str(), e.code, e.text()));
    return false;
  }
  group_name_ = new_name;
  return true;
}

}  // namespace ceph
