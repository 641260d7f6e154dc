// Retry delays that double from a slot time up to a cap, as a forward range:
//
//   for (unsigned d : exponential_backoff(1, 5, 60, false)) {   // 1 2 4 8 16
//     if (done()) return true;
//     ACE_OS::sleep(d);
//   }
//
// Delay i (from 0) is slot_time * 2^i, never above `capped` (0: no cap), and there
// are max_retries of them. With jitter each delay is drawn uniformly from the upper
// half of its slot, [ceil(slot/2), slot], so concurrent pollers spread out while
// the sequence still grows and never drops to zero for a non-zero slot.
// The unit is the caller's (seconds for the polling loops of this library).
#pragma once

#include <boost/iterator/iterator_facade.hpp>
#include <boost/range/iterator_range.hpp>

class Exponential_Backoff_Iterator
    : public boost::iterator_facade<Exponential_Backoff_Iterator, const unsigned,
                                    boost::forward_traversal_tag> {
 public:
  // The end of every sequence.
  Exponential_Backoff_Iterator();
  Exponential_Backoff_Iterator(unsigned slot_time, unsigned max_retries, unsigned capped,
                               bool jitter);

  // How many delays came before this one.
  unsigned index() const { return i_; }
  // The sum of the delays up to and including this one.
  unsigned long long cumulation() const { return cumulation_; }

 private:
  friend class boost::iterator_core_access;

  const unsigned& dereference() const { return value_; }
  void increment();
  bool equal(const Exponential_Backoff_Iterator& other) const;
  bool at_end() const { return i_ >= max_retries_; }
  void settle_value();

  unsigned slot_time_;
  unsigned max_retries_;
  unsigned capped_;
  bool jitter_;
  unsigned value_;                 // the current delay
  unsigned long long cumulation_;  // total of the delays so far, this one included
  unsigned slot_time_exp_;         // slot_time_ * 2^i_, held at the cap
  unsigned i_;
};

using Exponential_Backoff_Range = boost::iterator_range<Exponential_Backoff_Iterator>;

Exponential_Backoff_Range exponential_backoff(Exponential_Backoff_Iterator begin);
Exponential_Backoff_Range exponential_backoff(unsigned slot_time, unsigned max_retries,
                                              unsigned capped, bool jitter);
