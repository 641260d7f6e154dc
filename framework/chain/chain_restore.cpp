#include "framework/chain/chain_restore.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <vector>

#include "framework/chain/chain_io_internal.h"
#include "framework/chain/chain_plan.h"


namespace {

// Zeroing is handed to the target in slices so that progress and cancel keep moving.
constexpr uint64_t ZERO_SLICE = uint64_t{256} << 20;

class Restore {
 public:
  Restore(const Piece_Chain& chain, Restore_Target& target, const Chain_Callbacks& callbacks)
      : chain_(chain),
        target_(target),
        progress_(callbacks, chain.image_size()),
        chain_name_(loggable(chain.newest().name)),
        target_name_(loggable(target.name())) {}

  bool run(const Piece_Chain::Connect& connect, Chain_Totals& totals) {
    const std::vector<Chain_Segment> plan = plan_chain(chain_);
    if (!target_.resize(chain_.image_size())) {
      return target_failed("resize to " + std::to_string(chain_.image_size()) + " bytes");
    }
    // Each piece's segments, in image order: its records are then read front to back.
    std::vector<std::vector<size_t>> by_link(chain_.links().size());
    for (size_t i = 0; i < plan.size(); ++i) {
      if (!plan[i].zeros) by_link[plan[i].link].push_back(i);
    }
    for (size_t l = 0; l < by_link.size(); ++l) {
      if (by_link[l].empty()) continue;
      chain_io::Piece_Source source;
      const bool ok = write_piece(connect, l, plan, by_link[l], source, totals);
      source.close();
      totals.piece_bytes_read += source.bytes_read();
      if (!ok) return false;
    }
    for (const Chain_Segment& s : plan) {
      if (!s.zeros) continue;
      for (uint64_t at = s.offset, end = s.offset + s.length; at < end;) {
        if (progress_.cancelled()) return cancelled();
        const uint64_t n = std::min(ZERO_SLICE, end - at);
        if (!target_.zero(at, n)) {
          return target_failed("zero " + std::to_string(n) + " bytes at " + std::to_string(at));
        }
        totals.zero_bytes += n;
        progress_.add(n);
        at += n;
      }
    }
    if (!target_.flush()) return target_failed("flush");
    totals.image_size = chain_.image_size();
    totals.pieces = chain_.links().size();
    return true;
  }

 private:
  bool write_piece(const Piece_Chain::Connect& connect, size_t l,
                   const std::vector<Chain_Segment>& plan, const std::vector<size_t>& segments,
                   chain_io::Piece_Source& source, Chain_Totals& totals) {
    if (progress_.cancelled()) return cancelled();
    if (!source.open(connect, chain_.links()[l])) return false;
    for (size_t i : segments) {
      const Chain_Segment& s = plan[i];
      if (progress_.cancelled()) return cancelled();
      const unsigned char* plain = nullptr;
      if (!source.record(s.record, plain)) return false;
      if (!target_.write(s.offset, plain + s.record_offset, static_cast<size_t>(s.length))) {
        return target_failed("write " + std::to_string(s.length) + " bytes at " +
                             std::to_string(s.offset));
      }
      totals.data_bytes += s.length;
      progress_.add(s.length);
    }
    return true;
  }

  bool target_failed(const std::string& what) {
    ACE_ERROR((LM_ERROR, "Failed to restore chain '%s' to '%s': %s: %s\n", chain_name_.c_str(),
               target_name_.c_str(), what.c_str(), target_.last_error().c_str()));
    return false;
  }
  bool cancelled() {
    ACE_ERROR((LM_ERROR, "Cancelled restore of chain '%s' to '%s'\n", chain_name_.c_str(),
               target_name_.c_str()));
    return false;
  }

  const Piece_Chain& chain_;
  Restore_Target& target_;
  chain_io::Progress progress_;
  const std::string chain_name_, target_name_;
};

}  // namespace

bool restore_chain(const Piece_Chain& chain, const Piece_Chain::Connect& connect,
                   Restore_Target& target, const Chain_Callbacks& callbacks, Chain_Totals* totals) {
  if (chain.links().empty()) {
    ACE_ERROR((LM_ERROR, "Cannot restore to '%s': the chain holds no piece\n",
               loggable(target.name()).c_str()));
    return false;
  }
  Chain_Totals t;
  if (!Restore(chain, target, callbacks).run(connect, t)) return false;
  if (totals != nullptr) *totals = t;
  return true;
}
