// Run-time binding of librados: one process-wide pointer per bound function
// (ceph::rados_create, ...), filled once by Librados_Wrapper::open. The library is
// never linked; every librados call in this code base, and in an agent that wants one,
// goes through these pointers, declared below and exported. Check an optional one for
// null before calling it.
// Threads: open() binds once under a once-only guard, whichever thread comes first;
// after that the pointers are read without locks. close() is for tests and process
// exit only: no other thread may be calling librados then. The library stays loaded.
#pragma once

#include <ace/DLL.h>
#include <ace/Null_Mutex.h>
#include <ace/Singleton.h>

#include <rados/librados.h>

#include <mutex>

#include "framework/base/api.h"
#include "utils/agent/ceph/ceph_symbols.h"
#include "utils/agent/ceph/librados_symbols.h"

namespace ceph {

AU_CEPH_IGNORE_DEPRECATED_BEGIN
AU_LIBRADOS_SYMBOLS(AU_CEPH_DECLARE_POINTER)
AU_CEPH_IGNORE_DEPRECATED_END

class AGENTUTIL_API Librados_Wrapper {
 public:
  static Librados_Wrapper* instance();
  static void close_instance();

  // Loads the library (default "librados"; from `dir` when given) and binds the
  // pointers, at most once per process: later calls, even after a failure and with
  // other arguments, only report whether the library is bound.
  bool open(const char* name, const char* dir);
  // The loading step; call it through open().
  bool open_i(const char* name, const char* dir) noexcept;

  // True when the last required pointer is bound.
  explicit operator bool() const;

  // Nulls every pointer; the library stays loaded and open() does not bind again.
  void close();

 private:
  friend class ACE_Singleton<Librados_Wrapper, ACE_Null_Mutex>;
  Librados_Wrapper() = default;

  std::once_flag open_flag_;
  ACE_DLL dll_{true};
};

// Destroys the singleton; also registered to run when the library unloads.
AGENTUTIL_API void Librados_Wrapper_fini();

}  // namespace ceph
