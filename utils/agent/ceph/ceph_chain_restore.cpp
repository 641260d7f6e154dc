#include "utils/agent/ceph/ceph_chain_restore.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <vector>

#include "utils/agent/ceph/ceph_client.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/rbd_restore_target.h"
#include "utils/agent/ceph/uri_components.h"

namespace ceph {

namespace {

// Creates `name` at `size` unless the pool has it; `created` tells which.
bool ensure_image(Ceph_Client& client, const URI_Components& uri, uint64_t size, bool& created) {
  created = false;
  Ceph_Pool pool;
  if (!client.open_pool(uri.pool, pool)) return false;
  std::vector<Image_Spec> images;
  if (!pool.list_image(images)) return false;
  if (std::any_of(images.begin(), images.end(),
                  [&](const Image_Spec& i) { return i.name == uri.img; }))
    return true;
  Ceph_Image image;
  if (!pool.new_image(uri.img, size, image, RESTORE_IMAGE_FEATURES, RESTORE_IMAGE_ORDER, 0, 0,
                      false))
    return false;
  created = true;
  return true;
}

}  // namespace

bool restore_chain_into(Ceph_Client& client, const std::string& image_uri,
                        const Piece_Chain& chain, const Piece_Chain::Connect& connect,
                        const Chain_Callbacks& callbacks, Chain_Totals* totals) {
  const URI_Components uri(image_uri);
  if (uri.type != URI_Components::IMAGE) {
    ACE_ERROR((LM_ERROR, "Failed to restore into '%s': not a Ceph image URI.\n",
               image_uri.c_str()));
    return false;
  }
  if (chain.links().empty()) {
    ACE_ERROR((LM_ERROR, "Failed to restore into '%s': the chain holds no piece.\n",
               image_uri.c_str()));
    return false;
  }
  bool created = false;
  Rbd_Restore_Target target;
  if (!ensure_image(client, uri, chain.image_size(), created) ||
      !target.open(client, uri.to_uri(), created)) {
    ACE_ERROR((LM_ERROR, "Failed to restore piece '%s' and its chain into '%s'.\n",
               chain.newest().name.c_str(), image_uri.c_str()));
    return false;
  }
  // ::restore_chain sizes the image first and names the failing piece or target itself.
  return restore_chain(chain, connect, target, callbacks, totals);
}

}  // namespace ceph
