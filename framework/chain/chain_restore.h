// Restores, consolidates and verifies chains (piece_chain.h), storage-agnostic.
//
// restore_chain: the target is set to the newest snapshot's size first (grown or shrunk),
// then every segment of plan_chain() is written once (data) or zeroed, then flushed; each
// record is read at most once, each piece front to back. Success means the target holds
// the newest snapshot, every byte and its size.
//
// consolidate_chain: the same final image written as one new full piece (a synthetic
// full): the newest piece's identity with a new piece id and no base.
//
// verify_chain: every record of every piece read and checked, nothing written.
//
// Each failure is one log line naming the piece, record or target, and false.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "framework/base/api.h"
#include "framework/chain/piece_chain.h"
#include "framework/chain/restore_target.h"

struct AGENTUTIL_API Chain_Callbacks {
  // (image bytes done, image bytes in all), after each segment or record.
  std::function<void(uint64_t done, uint64_t total)> progress;
  // True stops the call (it then fails with a "Cancelled" line).
  std::function<bool()> cancel;
};

struct AGENTUTIL_API Chain_Totals {
  uint64_t image_size = 0;
  uint64_t pieces = 0;
  uint64_t data_bytes = 0;        // image bytes written from records
  uint64_t zero_bytes = 0;        // image bytes zeroed (or left as holes)
  uint64_t piece_bytes_read = 0;  // stored bytes read from the pool
};

AGENTUTIL_API bool restore_chain(const Piece_Chain& chain, const Piece_Chain::Connect& connect,
                                 Restore_Target& target, const Chain_Callbacks& callbacks,
                                 Chain_Totals* totals);

// `out` is a connection to the pool that receives `piece_name` (it may be the chain's).
AGENTUTIL_API bool consolidate_chain(const Piece_Chain& chain, const Piece_Chain::Connect& connect,
                                     Client_IO_Base& out, const std::string& piece_name,
                                     const Chain_Callbacks& callbacks, Chain_Totals* totals);

AGENTUTIL_API bool verify_chain(const Piece_Chain& chain, const Piece_Chain::Connect& connect,
                                const Chain_Callbacks& callbacks, Chain_Totals* totals);
