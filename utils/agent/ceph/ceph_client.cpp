#include "utils/agent/ceph/ceph_client.h"

#include "framework/log/trace.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"

namespace ceph {

bool Ceph_Client::open_ceph_libraries() {
  AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t called Ceph_Client::open_ceph_libraries()\n")));
  if (!Librados_Wrapper::instance()->open(nullptr, nullptr)) return false;
  return Librbd_Wrapper::instance()->open(nullptr, nullptr);
}

}  // namespace ceph
