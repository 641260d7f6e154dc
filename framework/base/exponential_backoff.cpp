#include "framework/base/exponential_backoff.h"

#include <algorithm>
#include <limits>
#include <random>

namespace {

unsigned random_between(unsigned low, unsigned high) {
  thread_local std::mt19937 engine{std::random_device{}()};
  return std::uniform_int_distribution<unsigned>(low, high)(engine);
}

unsigned effective_cap(unsigned capped) {
  return capped == 0 ? std::numeric_limits<unsigned>::max() : capped;
}

}  // namespace

Exponential_Backoff_Iterator::Exponential_Backoff_Iterator()
    : Exponential_Backoff_Iterator(0, 0, 0, false) {}

Exponential_Backoff_Iterator::Exponential_Backoff_Iterator(unsigned slot_time,
                                                           unsigned max_retries,
                                                           unsigned capped, bool jitter)
    : slot_time_(slot_time),
      max_retries_(max_retries),
      capped_(capped),
      jitter_(jitter),
      value_(0),
      cumulation_(0),
      slot_time_exp_(std::min(slot_time, effective_cap(capped))),
      i_(0) {
  if (!at_end()) settle_value();
}

void Exponential_Backoff_Iterator::increment() {
  if (at_end()) return;
  if (++i_ == max_retries_) {
    value_ = 0;
    return;
  }
  const unsigned cap = effective_cap(capped_);
  // Doubling stops at the cap, so it can never overflow.
  slot_time_exp_ = slot_time_exp_ > cap / 2 ? cap : slot_time_exp_ * 2;
  settle_value();
}

void Exponential_Backoff_Iterator::settle_value() {
  value_ = jitter_ ? random_between(slot_time_exp_ - slot_time_exp_ / 2, slot_time_exp_)
                   : slot_time_exp_;
  cumulation_ += value_;
}

bool Exponential_Backoff_Iterator::equal(const Exponential_Backoff_Iterator& other) const {
  if (at_end() || other.at_end()) return at_end() == other.at_end();
  return i_ == other.i_ && slot_time_ == other.slot_time_ &&
         max_retries_ == other.max_retries_ && capped_ == other.capped_ &&
         jitter_ == other.jitter_;
}

Exponential_Backoff_Range exponential_backoff(Exponential_Backoff_Iterator begin) {
  return Exponential_Backoff_Range(begin, Exponential_Backoff_Iterator());
}

Exponential_Backoff_Range exponential_backoff(unsigned slot_time, unsigned max_retries,
                                              unsigned capped, bool jitter) {
  return exponential_backoff(
      Exponential_Backoff_Iterator(slot_time, max_retries, capped, jitter));
}
