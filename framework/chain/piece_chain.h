// A chain of pieces in one pool: a full piece and the incrementals built on it, oldest
// first, checked to be one image's history in order before anything reads their data.
//
//   Piece_Chain chain;
//   chain.load_from_newest(connect, "vm-1/daily-9");         // follow base links
//   chain.load_list(connect, {"vm-1/full", "vm-1/daily-1"});  // or check a given order
//
// Each link is checked against the one before it: same source (kind, cluster, pool,
// image id), its base snapshot is that piece's snapshot, its base image size that
// piece's image size, and its base piece id (when it names one) that piece's id. The
// first link must be a full piece. A broken, foreign or out-of-order chain is refused
// with one log line naming the piece and the link, e.g.
//   "Invalid chain at piece 'vm-1/daily-2': its base is snapshot 5 ('daily-1'), and
//    piece 'vm-1/full' holds snapshot 3 ('weekly')"
//
// A version 1 piece names no source or base: it is taken only as a chain of its own.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/base/api.h"
#include "framework/client_io/client_io_base.h"
#include "framework/client_io/image_block_reader.h"

struct AGENTUTIL_API Chain_Link {
  std::string name;     // the piece's name in the pool
  Piece_Layout layout;  // checked header, identity and index
};

class AGENTUTIL_API Piece_Chain {
 public:
  // A new connection to the pool that holds the chain (one per piece read at once).
  using Connect = std::function<std::unique_ptr<Client_IO_Base>()>;

  // Longest chain followed: past it a loop or a hostile pool is assumed.
  static constexpr size_t MAX_LENGTH = 1024;
  // Most records all links may hold together (four pieces' worth of the largest index):
  // what a chain keeps in memory stays bounded however many pieces a pool offers.
  static constexpr uint64_t MAX_RECORDS = 4 * (piece::MAX_INDEX_BYTES / piece::INDEX_ENTRY_SIZE);

  bool load_from_newest(const Connect& connect, const std::string& newest);
  bool load_list(const Connect& connect, const std::vector<std::string>& oldest_first);
  // Links whose layouts are already read, oldest first: checked as load_list checks them.
  bool assign(std::vector<Chain_Link> oldest_first);

  const std::vector<Chain_Link>& links() const { return links_; }
  const Chain_Link& newest() const { return links_.back(); }
  // The image size at the newest snapshot: what a restore gives back.
  uint64_t image_size() const { return links_.empty() ? 0 : newest().layout.identity.image_size; }

 private:
  std::vector<Chain_Link> links_;
};
