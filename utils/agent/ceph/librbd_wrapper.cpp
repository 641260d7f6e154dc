#include "utils/agent/ceph/librbd_wrapper.h"

#include <ace/Log_Msg.h>

#include <exception>
#include <iterator>

namespace ceph {

AU_CEPH_IGNORE_DEPRECATED_BEGIN
AU_LIBRBD_SYMBOLS(AU_CEPH_DEFINE_POINTER)
AU_LIBRBD_AIO_SYMBOLS(AU_CEPH_DEFINE_POINTER)
AU_CEPH_IGNORE_DEPRECATED_END

namespace {

using Singleton = ACE_Unmanaged_Singleton<Librbd_Wrapper, ACE_Null_Mutex>;

#define AU_LIBRBD_ENTRY(sym, kind) AU_CEPH_SYMBOL_ENTRY("librbd", sym, kind),
const Ceph_Symbol LIBRBD_SYMBOLS[] = {AU_LIBRBD_SYMBOLS(AU_LIBRBD_ENTRY)};
const Ceph_Symbol LIBRBD_AIO_SYMBOLS[] = {AU_LIBRBD_AIO_SYMBOLS(AU_LIBRBD_ENTRY)};
#undef AU_LIBRBD_ENTRY

const char* const LIBRBD_SONAMES[] = {"librbd.so.1", nullptr};

const Ceph_Library LIBRBD = {
    "librbd",
    LIBRBD_SONAMES,
    "Failed to open dll 'librbd': %s.\n",
    "Failed to open dll 'librbd' form path %s: %s.\n",
    LIBRBD_SYMBOLS,
    std::size(LIBRBD_SYMBOLS),
};

// The same library, its asynchronous table only (bound once LIBRBD is).
const Ceph_Library LIBRBD_AIO = {
    "librbd", LIBRBD_SONAMES, "", "", LIBRBD_AIO_SYMBOLS, std::size(LIBRBD_AIO_SYMBOLS),
};

}  // namespace

Librbd_Wrapper* Librbd_Wrapper::instance() { return Singleton::instance(); }

void Librbd_Wrapper::close_instance() { Singleton::close(); }

bool Librbd_Wrapper::open(const char* name, const char* dir) {
  try {
    std::call_once(open_flag_, [this, name, dir] { open_i(name, dir); });
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open librbd: %s.\n"), e.what()));
    return false;
  }
  return static_cast<bool>(*this);
}

bool Librbd_Wrapper::open_i(const char* name, const char* dir) noexcept {
  if (*this) return true;
  if (!load_ceph_library(dll_, LIBRBD, name, dir)) return false;
  bind_ceph_symbols(dll_, LIBRBD_AIO);  // all optional: cannot fail
  return true;
}

Librbd_Wrapper::operator bool() const { return rbd_snap_remove != nullptr; }

void Librbd_Wrapper::close() {
  clear_ceph_symbols(LIBRBD);
  clear_ceph_symbols(LIBRBD_AIO);
}

__attribute__((destructor)) void Librbd_Wrapper_fini() { Librbd_Wrapper::close_instance(); }

}  // namespace ceph
