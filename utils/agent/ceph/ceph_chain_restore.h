// Restores a chain of pieces (framework/chain) into an RBD image, the one call an agent
// makes for it:
//
//   Piece_Chain chain;
//   chain.load_from_newest(connect, "vm-1/daily-9");
//   ceph::restore_chain_into(client, "ceph://rbd/vm-1-restored", chain, connect, {}, &totals);
//
// A missing image is created at the chain's final size (features layering, exclusive-lock,
// object-map, fast-diff, deep-flatten; 4 MiB objects); an existing one is grown or shrunk
// to it. Then every byte of the newest snapshot is written once (Rbd_Restore_Target,
// ::restore_chain), and success means the image holds that snapshot, size included.
//
// Threads: the calling thread only. Failures: one log line and false; a created image
// stays (with what was written), for the caller to retry into or remove.
#pragma once

#include <string>

#include "framework/base/api.h"
#include "framework/chain/chain_restore.h"
#include "framework/chain/piece_chain.h"

namespace ceph {

class Ceph_Client;

// The features and object size of an image a restore creates.
constexpr unsigned long RESTORE_IMAGE_FEATURES = 1 | 4 | 8 | 16 | 32;
constexpr int RESTORE_IMAGE_ORDER = 22;

AGENTUTIL_API bool restore_chain_into(Ceph_Client& client, const std::string& image_uri,
                                      const Piece_Chain& chain,
                                      const Piece_Chain::Connect& connect,
                                      const Chain_Callbacks& callbacks, Chain_Totals* totals);

}  // namespace ceph
