#include "framework/chain/chain_plan.h"

#include <algorithm>
#include <map>

namespace {

// Disjoint ranges [start, end) already taken by newer pieces, neighbours merged. Each
// range a record walks over is merged away, so a chain costs O(records log records).
class Taken_Ranges {
 public:
  // Calls free_part(start, end) for each part of [start, end) not taken yet, in order,
  // then marks the whole range taken.
  template <class F>
  void take(uint64_t start, uint64_t end, F&& free_part) {
    auto it = ranges_.upper_bound(start);
    if (it != ranges_.begin() && std::prev(it)->second >= start) --it;
    uint64_t merged_start = start, merged_end = end, at = start;
    while (it != ranges_.end() && it->first <= end) {
      if (it->first > at) free_part(at, it->first);
      at = std::max(at, it->second);
      merged_start = std::min(merged_start, it->first);
      merged_end = std::max(merged_end, it->second);
      it = ranges_.erase(it);
    }
    if (at < end) free_part(at, end);
    ranges_.emplace(merged_start, merged_end);
  }

 private:
  std::map<uint64_t, uint64_t> ranges_;
};

}  // namespace

std::vector<Chain_Segment> plan_chain(const Piece_Chain& chain) {
  std::vector<Chain_Segment> found;
  const std::vector<Chain_Link>& links = chain.links();
  Taken_Ranges taken;
  // A byte at or beyond a newer snapshot's image size was cut off there: older pieces
  // must not show through it, whatever the image grew back to since.
  uint64_t visible_end = chain.image_size();
  for (size_t l = links.size(); l-- > 0;) {
    const Piece_Layout& layout = links[l].layout;
    visible_end = std::min(visible_end, layout.identity.image_size);
    for (size_t r = 0; r < layout.records.size(); ++r) {
      const piece::Record& rec = layout.records[r];
      if (rec.length == 0 || rec.offset >= visible_end) continue;
      const uint64_t end = rec.offset + std::min(rec.length, visible_end - rec.offset);
      const bool zeros = (rec.flags & piece::RECORD_DATA) == 0;
      taken.take(rec.offset, end, [&](uint64_t s, uint64_t e) {
        Chain_Segment seg;
        seg.offset = s;
        seg.length = e - s;
        seg.zeros = zeros;
        if (!zeros) {
          seg.link = l;
          seg.record = r;
          seg.record_offset = s - rec.offset;
        }
        found.push_back(seg);
      });
    }
  }
  std::sort(found.begin(), found.end(),
            [](const Chain_Segment& a, const Chain_Segment& b) { return a.offset < b.offset; });

  // Bytes no piece holds read as zeros; neighbouring zero segments become one.
  std::vector<Chain_Segment> plan;
  plan.reserve(found.size() + 1);
  uint64_t at = 0;
  auto add_zeros = [&](uint64_t offset, uint64_t length) {
    if (!plan.empty() && plan.back().zeros && plan.back().offset + plan.back().length == offset) {
      plan.back().length += length;
      return;
    }
    Chain_Segment z;
    z.offset = offset;
    z.length = length;
    z.zeros = true;
    plan.push_back(z);
  };
  for (const Chain_Segment& s : found) {
    if (s.offset > at) add_zeros(at, s.offset - at);
    if (s.zeros) {
      add_zeros(s.offset, s.length);
    } else {
      plan.push_back(s);
    }
    at = s.offset + s.length;
  }
  if (at < chain.image_size()) add_zeros(at, chain.image_size() - at);
  return plan;
}
