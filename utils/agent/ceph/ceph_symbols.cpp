#include "utils/agent/ceph/ceph_symbols.h"

#include <ace/DLL.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <cstring>
#include <string>

#include "framework/base/path.h"

namespace ceph {

namespace {

bool open_library(ACE_DLL& dll, const Ceph_Library& lib, const char* name, const char* dir) {
  // close-on-destruction off: the library stays loaded for the life of the process.
  if (dir != nullptr) {
    // No fall-back to the bare name: a caller that names a directory means that copy.
    const nvrt::Path_T<char> path(dir, name, '/', true);
    if (dll.open(path.c_str(), CEPH_DLL_OPEN_MODE, false) != 0) {
      ACE_ERROR((LM_ERROR, lib.open_path_failed, path.c_str(), dll.error()));
      return false;
    }
    return true;
  }
  if (dll.open(name, CEPH_DLL_OPEN_MODE, false) == 0) return true;
  // The bare name's error is the one reported: it names what the caller asked for.
  const std::string error = dll.error();
  if (std::strcmp(name, lib.default_name) == 0) {
    for (const char* const* soname = lib.sonames; soname && *soname; ++soname) {
      dll.close();  // ACE_DLL keeps a failed open's state: the next open needs a clean one
      if (dll.open(*soname, CEPH_DLL_OPEN_MODE, false) == 0) return true;
    }
  }
  ACE_ERROR((LM_ERROR, lib.open_failed, error.c_str()));
  return false;
}

}  // namespace

bool bind_ceph_symbols(ACE_DLL& dll, const Ceph_Library& lib) {
  for (std::size_t i = 0; i < lib.symbol_count; ++i) {
    const Ceph_Symbol& sym = lib.symbols[i];
    void* address = dll.symbol(sym.name, 0);
    sym.store(address);
    if (address != nullptr) continue;
    if (sym.required) {
      // Nothing is undone: the marker (last required symbol) stays null, so the
      // library reads as not bound.
      ACE_ERROR((LM_ERROR, sym.missing_format, dll.error()));
      return false;
    }
    ACE_DEBUG((LM_TRACE, sym.missing_format, dll.error()));
  }
  return true;
}

bool load_ceph_library(ACE_DLL& dll, const Ceph_Library& lib, const char* name,
                       const char* dir) {
  if (name == nullptr) name = lib.default_name;
  return open_library(dll, lib, name, dir) && bind_ceph_symbols(dll, lib);
}

void clear_ceph_symbols(const Ceph_Library& lib) {
  for (std::size_t i = 0; i < lib.symbol_count; ++i) lib.symbols[i].store(nullptr);
}

bool report_missing_symbol(const char* text, const char* file, int line) {
  const int saved_errno = ACE_OS::last_error();
  ACE_Log_Msg* log = ACE_Log_Msg::instance();
  log->conditional_set(file, line, -1, saved_errno);
  log->log(LM_ERROR, ACE_TEXT("%C"), text);
  ACE_OS::last_error(saved_errno);
  return true;
}

}  // namespace ceph
