#include "tests/support/ceph_fault_injector.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <type_traits>

#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace au_test {

namespace {

#define AU_FAULT_INDEX(sym, kind) at_##sym,
enum Symbol_Index {
  AU_LIBRADOS_SYMBOLS(AU_FAULT_INDEX) AU_LIBRBD_SYMBOLS(AU_FAULT_INDEX)
      AU_LIBRBD_AIO_SYMBOLS(AU_FAULT_INDEX) SYMBOL_COUNT
};
#undef AU_FAULT_INDEX

void* real[SYMBOL_COUNT];
const char* name[SYMBOL_COUNT];
std::atomic<int> counted{0};
std::atomic<int> fail_at{0};
std::atomic<int> failed_index{-1};

bool never_failed(int i) { return i == at_rbd_aio_wait_for_complete || i == at_rbd_aio_release; }

// Calls that give something back (an image, a list) still give it back in librbd when they
// report an error: these run for real before failing, or the failure would leak a handle
// whose watch keeps the image busy, which no real failure does.
bool releases(int i) {
  return i == at_rbd_close || i == at_rbd_group_info_cleanup || i == at_rbd_group_snap_list_cleanup ||
         i == at_rbd_group_image_list_cleanup;
}

bool fail_now(int i) {
  if (never_failed(i)) return false;
  if (++counted != fail_at.load()) return false;
  failed_index = i;
  return true;
}

template <int I, class F>
struct Wrapper;

template <int I, class R, class... A>
struct Wrapper<I, R (*)(A...)> {
  static R call(A... args) {
    if constexpr (std::is_integral_v<R> && std::is_signed_v<R>) {
      if (fail_now(I)) {
        if (releases(I)) reinterpret_cast<R (*)(A...)>(real[I])(args...);
        return static_cast<R>(-EIO);
      }
    }
    return reinterpret_cast<R (*)(A...)>(real[I])(args...);
  }
};

}  // namespace

AU_CEPH_IGNORE_DEPRECATED_BEGIN

#define AU_FAULT_WRAP(sym, kind)                                                   \
  real[at_##sym] = reinterpret_cast<void*>(::ceph::sym);                           \
  name[at_##sym] = #sym;                                                           \
  if (::ceph::sym != nullptr) ::ceph::sym = &Wrapper<at_##sym, decltype(&::sym)>::call;
#define AU_FAULT_RESTORE(sym, kind) \
  ::ceph::sym = reinterpret_cast<decltype(&::sym)>(real[at_##sym]);

Ceph_Fault_Injector::Ceph_Fault_Injector() {
  fail_call(0);
  AU_LIBRADOS_SYMBOLS(AU_FAULT_WRAP)
  AU_LIBRBD_SYMBOLS(AU_FAULT_WRAP)
  AU_LIBRBD_AIO_SYMBOLS(AU_FAULT_WRAP)
}

Ceph_Fault_Injector::~Ceph_Fault_Injector() {
  AU_LIBRADOS_SYMBOLS(AU_FAULT_RESTORE)
  AU_LIBRBD_SYMBOLS(AU_FAULT_RESTORE)
  AU_LIBRBD_AIO_SYMBOLS(AU_FAULT_RESTORE)
}

#undef AU_FAULT_WRAP
#undef AU_FAULT_RESTORE

AU_CEPH_IGNORE_DEPRECATED_END

void Ceph_Fault_Injector::fail_call(int k) {
  counted = 0;
  failed_index = -1;
  fail_at = k;
}

int Ceph_Fault_Injector::calls() const { return counted.load(); }

std::string Ceph_Fault_Injector::failed() const {
  const int i = failed_index.load();
  return i < 0 ? std::string() : std::string(name[i]);
}

}  // namespace au_test
