/* Stand-ins for librados and librbd that only export names: every function returns
 * -ENOSYS. The binding code is tested against them for what a real install cannot show
 * (an old release without the optional functions, a broken one without a required one).
 *
 * Build switches:
 *   FAKE_LIBRADOS or FAKE_LIBRBD   which symbol list to export
 *   FAKE_WITHOUT_OPTIONAL          export only the required functions
 *   -D<symbol>=omitted_<symbol>    export that function under another name, i.e. drop it */
#include <errno.h>

#include "utils/agent/ceph/librados_symbols.h"
#include "utils/agent/ceph/librbd_aio_symbols.h"
#include "utils/agent/ceph/librbd_symbols.h"

#define FAKE_FUNCTION(sym) \
  int sym(void) { return -ENOSYS; }
#define FAKE_REQUIRED(sym) FAKE_FUNCTION(sym)
#ifdef FAKE_WITHOUT_OPTIONAL
#define FAKE_OPTIONAL(sym)
#else
#define FAKE_OPTIONAL(sym) FAKE_FUNCTION(sym)
#endif
#define FAKE_SYMBOL(sym, kind) FAKE_##kind(sym)

#if defined(FAKE_LIBRADOS)
AU_LIBRADOS_SYMBOLS(FAKE_SYMBOL)
#elif defined(FAKE_LIBRBD)
AU_LIBRBD_SYMBOLS(FAKE_SYMBOL)
AU_LIBRBD_AIO_SYMBOLS(FAKE_SYMBOL)
#else
#error "define FAKE_LIBRADOS or FAKE_LIBRBD"
#endif
