// A scope guard: runs a callable once when it goes out of scope, unless released.
//
//   auto timer = make_deleter([&] { report_if_slow(start, req); });
//   ...                      // every way out of the scope runs it, once
//   timer.release();         // ... unless the work is handed on
//
// Moving hands the duty to the new guard; the moved-from one does nothing. The
// callable runs from a destructor, so it must not throw.
#pragma once

#include <type_traits>
#include <utility>

template <class F>
class Scoped_Deleter {
 public:
  explicit Scoped_Deleter(F fn) : fn_(std::move(fn)), armed_(true) {}
  Scoped_Deleter(Scoped_Deleter&& other) noexcept(std::is_nothrow_move_constructible<F>::value)
      : fn_(std::move(other.fn_)), armed_(other.armed_) {
    other.armed_ = false;
  }
  Scoped_Deleter(const Scoped_Deleter&) = delete;
  Scoped_Deleter& operator=(const Scoped_Deleter&) = delete;
  Scoped_Deleter& operator=(Scoped_Deleter&&) = delete;
  ~Scoped_Deleter() { run(); }

  // Runs the callable now instead of at scope exit (still only once).
  void run() {
    if (!armed_) return;
    armed_ = false;
    fn_();
  }
  // The callable will not run.
  void release() { armed_ = false; }
  bool armed() const { return armed_; }

 private:
  F fn_;
  bool armed_;
};

template <class F>
Scoped_Deleter<typename std::decay<F>::type> make_deleter(F&& fn) {
  return Scoped_Deleter<typename std::decay<F>::type>(std::forward<F>(fn));
}
