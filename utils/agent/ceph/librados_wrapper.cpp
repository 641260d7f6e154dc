#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/librados_wrapper.h"

#include <ace/Log_Msg.h>

#include <exception>
#include <iterator>

namespace ceph {

AU_CEPH_IGNORE_DEPRECATED_BEGIN
AU_LIBRADOS_SYMBOLS(AU_CEPH_DEFINE_POINTER)
AU_CEPH_IGNORE_DEPRECATED_END

namespace {

using Singleton = ACE_Unmanaged_Singleton<Librados_Wrapper, ACE_Null_Mutex>;

#define AU_LIBRADOS_ENTRY(sym, kind) AU_CEPH_SYMBOL_ENTRY("librados", sym, kind),
const Ceph_Symbol LIBRADOS_SYMBOLS[] = {AU_LIBRADOS_SYMBOLS(AU_LIBRADOS_ENTRY)};
#undef AU_LIBRADOS_ENTRY

const char* const LIBRADOS_SONAMES[] = {"librados.so.2", nullptr};

const Ceph_Library LIBRADOS = {
    "librados",
    LIBRADOS_SONAMES,
    "Failed to open dll 'librados': %s.\n",
    "Failed to open dll 'librados' form path %s: %s.\n",
    LIBRADOS_SYMBOLS,
    std::size(LIBRADOS_SYMBOLS),
};

}  // namespace

Librados_Wrapper* Librados_Wrapper::instance() { return Singleton::instance(); }

void Librados_Wrapper::close_instance() { Singleton::close(); }

bool Librados_Wrapper::open(const char* name, const char* dir) {
  try {
    std::call_once(open_flag_, [this, name, dir] { open_i(name, dir); });
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open librados: %s.\n"), e.what()));
    return false;
  }
  return static_cast<bool>(*this);
}

bool Librados_Wrapper::open_i(const char* name, const char* dir) noexcept {
  if (*this) return true;
  return load_ceph_library(dll_, LIBRADOS, name, dir);
}

Librados_Wrapper::operator bool() const { return rados_ioctx_pool_stat != nullptr; }

void Librados_Wrapper::close() { clear_ceph_symbols(LIBRADOS); }

__attribute__((destructor)) void Librados_Wrapper_fini() { Librados_Wrapper::close_instance(); }

}  // namespace ceph
