#include "framework/chain/piece_chain.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <set>
#include <utility>

#include "framework/chain/chain_io_internal.h"

namespace {


std::string snapshot_text(const std::string& id, const std::string& name) {
  return "snapshot " + loggable(id) + " ('" + loggable(name) + "')";
}

std::string source_text(const piece::Identity& id) {
  return loggable(id.source_kind) + " image '" + loggable(id.pool) +
         (id.pool.empty() ? "" : "/") + loggable(id.image_name) + "' (id '" +
         loggable(id.image_id) + "', cluster '" + loggable(id.cluster) + "')";
}

bool refuse(const std::string& piece_name, const std::string& why) {
  ACE_ERROR(
      (LM_ERROR, "Invalid chain at piece '%s': %s\n", loggable(piece_name).c_str(), why.c_str()));
  return false;
}

// Why `cur` cannot follow `prev` in a chain; empty when it can.
std::string link_fault(const Chain_Link& prev, const Chain_Link& cur) {
  const piece::Identity& p = prev.layout.identity;
  const piece::Identity& c = cur.layout.identity;
  const std::string other = "piece '" + loggable(prev.name) + "'";
  if (cur.layout.header.version == 1 || prev.layout.header.version == 1) {
    const std::string& v1 = cur.layout.header.version == 1 ? cur.name : prev.name;
    return "piece '" + loggable(v1) +
           "' is of format version 1, which names no source or base: it is restored only "
           "on its own";
  }
  if (c.is_full()) return "it is a full piece, and " + other + " comes before it";
  if (!c.same_source(p)) {
    return "it is of " + source_text(c) + ", and " + other + " of " + source_text(p);
  }
  if (c.base_snapshot_id != p.snapshot_id) {
    return "its base is " + snapshot_text(c.base_snapshot_id, c.base_snapshot_name) + ", and " +
           other + " holds " + snapshot_text(p.snapshot_id, p.snapshot_name);
  }
  if (c.base_image_size != p.image_size) {
    return "its base image size is " + std::to_string(c.base_image_size) + " bytes, and " + other +
           " holds " + std::to_string(p.image_size) + " bytes";
  }
  if (!piece::is_zero(c.base_piece_id) && c.base_piece_id != p.piece_id) {
    return "its base is piece id " + piece::to_hex(c.base_piece_id) + ", and " + other +
           " has id " + piece::to_hex(p.piece_id);
  }
  return std::string();
}

// Opens `name` on `io` and reads its checked layout (with the connection's key).
// `base_of` names the piece that led here, for the failure line; empty for a first piece.
bool read_link(Client_IO_Base& io, const std::string& name, const std::string& base_of,
               Chain_Link& link) {
  if (!io.open(name, Client_IO_Base::OPEN_READ, 0, 0)) {
    if (!base_of.empty()) {
      return refuse(base_of,
                    "its base '" + loggable(name) + "' cannot be opened: " + io.last_error());
    }
    ACE_ERROR((LM_ERROR, "Cannot open piece '%s': %s\n", loggable(name).c_str(),
               io.last_error().c_str()));
    return false;
  }
  link.name = name;
  link.layout = Piece_Layout();
  const bool ok = Image_Block_Reader::read_layout(&io, link.layout, true);  // logs its failure
  io.close();
  return ok;
}

std::unique_ptr<Client_IO_Base> connect_for(const Piece_Chain::Connect& connect,
                                            const std::string& name) {
  std::unique_ptr<Client_IO_Base> io = connect ? connect() : nullptr;
  if (!io) {
    ACE_ERROR((LM_ERROR, "Cannot connect to the pool of piece '%s'\n", loggable(name).c_str()));
  }
  return io;
}

// Adds `link`'s records to `total`; refuses past Piece_Chain::MAX_RECORDS.
bool count_records(const Chain_Link& link, uint64_t& total) {
  total += link.layout.records.size();
  if (total <= Piece_Chain::MAX_RECORDS) return true;
  return refuse(link.name, "the chain's pieces hold more than " +
                               std::to_string(Piece_Chain::MAX_RECORDS) + " records");
}

}  // namespace

bool Piece_Chain::assign(std::vector<Chain_Link> oldest_first) {
  links_.clear();
  if (oldest_first.empty()) {
    ACE_ERROR((LM_ERROR, "Invalid chain: no piece given\n"));
    return false;
  }
  if (oldest_first.size() > MAX_LENGTH) {
    return refuse(oldest_first.back().name, "the chain has " + std::to_string(oldest_first.size()) +
                                                " pieces, more than " + std::to_string(MAX_LENGTH));
  }
  uint64_t records = 0;
  for (const Chain_Link& l : oldest_first) {
    if (!count_records(l, records)) return false;
    if (l.layout.identity.image_size > piece::MAX_IMAGE_SIZE) {
      return refuse(l.name, "its image size " + std::to_string(l.layout.identity.image_size) +
                                " is beyond " + std::to_string(piece::MAX_IMAGE_SIZE));
    }
  }
  const Chain_Link& first = oldest_first.front();
  if (first.layout.header.version != 1 && !first.layout.identity.is_full()) {
    const piece::Identity& id = first.layout.identity;
    return refuse(first.name, "the oldest piece must be full, and it builds on " +
                                  snapshot_text(id.base_snapshot_id, id.base_snapshot_name));
  }
  for (size_t i = 1; i < oldest_first.size(); ++i) {
    const std::string fault = link_fault(oldest_first[i - 1], oldest_first[i]);
    if (!fault.empty()) return refuse(oldest_first[i].name, fault);
  }
  links_ = std::move(oldest_first);
  return true;
}

bool Piece_Chain::load_list(const Connect& connect, const std::vector<std::string>& oldest_first) {
  links_.clear();
  if (oldest_first.empty()) return assign({});
  if (oldest_first.size() > MAX_LENGTH) {
    return refuse(oldest_first.back(), "the chain has " + std::to_string(oldest_first.size()) +
                                           " pieces, more than " + std::to_string(MAX_LENGTH));
  }
  std::unique_ptr<Client_IO_Base> io = connect_for(connect, oldest_first.front());
  if (!io) return false;
  std::vector<Chain_Link> links(oldest_first.size());
  uint64_t records = 0;
  for (size_t i = 0; i < oldest_first.size(); ++i) {
    if (!read_link(*io, oldest_first[i], std::string(), links[i])) return false;
    if (!count_records(links[i], records)) return false;
  }
  return assign(std::move(links));
}

bool Piece_Chain::load_from_newest(const Connect& connect, const std::string& newest) {
  links_.clear();
  std::unique_ptr<Client_IO_Base> io = connect_for(connect, newest);
  if (!io) return false;
  std::vector<Chain_Link> newest_first;
  std::set<std::string> seen;
  std::string name = newest, led_by;
  uint64_t records = 0;
  for (;;) {
    newest_first.emplace_back();
    if (!read_link(*io, name, led_by, newest_first.back())) return false;
    if (!count_records(newest_first.back(), records)) return false;
    seen.insert(name);
    const Piece_Layout& layout = newest_first.back().layout;
    if (layout.header.version == 1 || layout.identity.is_full()) break;
    const piece::Identity& id = layout.identity;
    if (id.base_piece_name.empty()) {
      return refuse(name, "its base " + snapshot_text(id.base_snapshot_id, id.base_snapshot_name) +
                              " names no piece: give the chain as a list");
    }
    if (seen.count(id.base_piece_name) != 0) {
      return refuse(name, "its base '" + loggable(id.base_piece_name) +
                              "' is already in the chain (a loop)");
    }
    if (newest_first.size() >= MAX_LENGTH) {
      return refuse(name, "its base '" + loggable(id.base_piece_name) +
                              "' would make the chain longer than " + std::to_string(MAX_LENGTH) +
                              " pieces");
    }
    led_by = name;
    name = id.base_piece_name;
  }
  std::reverse(newest_first.begin(), newest_first.end());
  return assign(std::move(newest_first));
}
