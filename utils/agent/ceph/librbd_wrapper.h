// Run-time binding of librbd: one process-wide pointer per bound function
// (ceph::rbd_open, ...), filled once by Librbd_Wrapper::open. The library is
// never linked; every librbd call in this code base, and in an agent that wants one,
// goes through these pointers, declared below and exported. The asynchronous ones and
// the optional ones may be null on an older librbd: check before calling.
// Threads: open() binds once under a once-only guard, whichever thread comes first;
// after that the pointers are read without locks. close() is for tests and process
// exit only: no other thread may be calling librbd then. The library stays loaded.
#pragma once

#include <ace/DLL.h>
#include <ace/Null_Mutex.h>
#include <ace/Singleton.h>

#include <rbd/librbd.h>

#include <mutex>

#include "framework/base/api.h"
#include "utils/agent/ceph/ceph_symbols.h"
#include "utils/agent/ceph/librbd_aio_symbols.h"
#include "utils/agent/ceph/librbd_symbols.h"

namespace ceph {

AU_CEPH_IGNORE_DEPRECATED_BEGIN
AU_LIBRBD_SYMBOLS(AU_CEPH_DECLARE_POINTER)
AU_LIBRBD_AIO_SYMBOLS(AU_CEPH_DECLARE_POINTER)
AU_CEPH_IGNORE_DEPRECATED_END

class AGENTUTIL_API Librbd_Wrapper {
 public:
  static Librbd_Wrapper* instance();
  static void close_instance();

  // Loads the library (default "librbd"; from `dir` when given) and binds the
  // pointers, then the optional asynchronous table, at most once per process: later
  // calls, even after a failure and with other arguments, only report whether the library
  // is bound.
  bool open(const char* name, const char* dir);
  // The loading step; call it through open().
  bool open_i(const char* name, const char* dir) noexcept;

  // True when the last required pointer is bound.
  explicit operator bool() const;

  // Nulls every pointer; the library stays loaded and open() does not bind again.
  void close();

 private:
  friend class ACE_Singleton<Librbd_Wrapper, ACE_Null_Mutex>;
  Librbd_Wrapper() = default;

  std::once_flag open_flag_;
  ACE_DLL dll_{true};
};

// Destroys the singleton; also registered to run when the library unloads.
AGENTUTIL_API void Librbd_Wrapper_fini();

}  // namespace ceph
