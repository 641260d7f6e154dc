#include "framework/client_io/client_io_base.h"

namespace {
const char* const D2T_NAMES[] = {"auto", "lan_base", "rpc"};
constexpr int D2T_COUNT = 3;
}  // namespace

const char* d2t_access_mode_name(Client_IO_Base::D2T_Access_Mode m) {
  return (m >= 0 && m < D2T_COUNT) ? D2T_NAMES[m] : nullptr;
}

bool d2t_access_mode_from_name(const std::string& name, Client_IO_Base::D2T_Access_Mode& out) {
  for (int i = 0; i < D2T_COUNT; ++i) {
    if (name == D2T_NAMES[i]) {
      out = static_cast<Client_IO_Base::D2T_Access_Mode>(i);
      return true;
    }
  }
  return false;
}
