// What the librados and librbd wrappers share: the open mode, the symbol table record,
// the loader that fills a table's pointers, and the check for an optional pointer.
//
// Each library's functions are listed once, as an X-macro (librados_symbols.h,
// librbd_symbols.h); the macros below turn that list into the global pointers, their
// definitions and the binding table, so the list is the only place to read or change.
#pragma once

#include <dlfcn.h>

#include <cstddef>

#include "framework/base/api.h"

class ACE_DLL;

namespace ceph {

// RTLD_LAZY with local binding, deliberately without RTLD_DEEPBIND: under deep binding
// libceph-common binds std::cerr/std::cout to libstdc++'s own copies, which are never
// initialised when the executable holds copy-relocated ones, so the first line Ceph writes
// to stderr (a wrong key, an unreachable monitor) kills the agent with SIGSEGV.
constexpr int CEPH_DLL_OPEN_MODE = RTLD_LAZY;

// One bindable function.
struct Ceph_Symbol {
  const char* name;
  bool required;
  const char* missing_format;   // logged with ACE_DLL::error() when absent; names the symbol
  void (*store)(void* address);  // sets the global pointer; null clears it
};

// One library: its default name, its open-failure lines and its table.
struct Ceph_Library {
  const char* default_name;      // "librados"
  // Tried in order when the default name is not found and no directory was given: hosts
  // with only the runtime package (librados2, librbd1) have no unversioned "librados.so".
  const char* const* sonames;    // null-terminated
  const char* open_failed;       // bare name: "...: %s.\n" with the loader's error
  const char* open_path_failed;  // dir form: "... %s: %s.\n" with the path and error
  const Ceph_Symbol* symbols;
  std::size_t symbol_count;
};

// Opens `dir`/`name` (or the bare `name`, found by the loader's search path, when `dir`
// is null; the library's default name when `name` is null, then its sonames) and binds
// the table in order.
// Stops at the first missing required symbol and keeps what is already bound; the library
// is never closed again. One log line for each failure and for each missing optional symbol.
bool load_ceph_library(ACE_DLL& dll, const Ceph_Library& lib, const char* name,
                       const char* dir);

// Binds the table in order on a library already opened; stops at the first missing
// required symbol. The same lines as load_ceph_library.
bool bind_ceph_symbols(ACE_DLL& dll, const Ceph_Library& lib);

// Sets every pointer of the table back to null.
void clear_ceph_symbols(const Ceph_Library& lib);

// Logs `text` at LM_ERROR with the caller's position; returns true.
bool report_missing_symbol(const char* text, const char* file, int line);

}  // namespace ceph

// ---- X-macro expanders (used in namespace ceph) ----

// Some prototypes carry CEPH_RBD_DEPRECATED; naming their type is not a use.
#define AU_CEPH_IGNORE_DEPRECATED_BEGIN \
  _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wdeprecated-declarations\"")
#define AU_CEPH_IGNORE_DEPRECATED_END _Pragma("GCC diagnostic pop")

// Exported: agents call librados/librbd through the same pointers (ceph::rbd_open, ...).
#define AU_CEPH_DECLARE_POINTER(sym, kind) extern AGENTUTIL_API decltype(&::sym) sym;
#define AU_CEPH_DEFINE_POINTER(sym, kind) AGENTUTIL_API decltype(&::sym) sym = nullptr;

#define AU_CEPH_IS_REQUIRED_REQUIRED true
#define AU_CEPH_IS_REQUIRED_OPTIONAL false
#define AU_CEPH_MISSING_FORMAT_REQUIRED(lib, sym) "Failed to load " lib " symbol " #sym " : %s\n"
#define AU_CEPH_MISSING_FORMAT_OPTIONAL(lib, sym) \
  "Current version of " lib " doesn't support " #sym ": %s\n"

// A braced Ceph_Symbol for `sym` of library `lib` ("librados" or "librbd").
#define AU_CEPH_SYMBOL_ENTRY(lib, sym, kind)                                     \
  {#sym, AU_CEPH_IS_REQUIRED_##kind, AU_CEPH_MISSING_FORMAT_##kind(lib, sym),    \
   [](void* address) { ::ceph::sym = reinterpret_cast<decltype(::ceph::sym)>(address); }}

// ---- Use of an optional pointer ----
//
// True (after logging "Failed to get symbol <sym>This version of Ceph doesn't support it.\n"
// at LM_ERROR) when the optional function `sym` is not bound:
//
//   if (AU_CEPH_LACKS_SYMBOL(rbd_group_snap_create)) return false;
#define AU_CEPH_LACKS_SYMBOL(sym)                                                       \
  ((::ceph::sym == nullptr)                                                             \
       ? ::ceph::report_missing_symbol(                                                 \
             "Failed to get symbol " #sym "This version of Ceph doesn't support it.\n", \
             __FILE__, __LINE__)                                                        \
       : false)
