// set_options_by_pool: a pool's own settings over the template options of a connection.
#include "framework/base/hex_string.h"
#include "framework/client_io/pool_info.h"

namespace {

void apply_cipher(Client_IO_Base::Options& options, const Pool_Info& info) {
  // A pool that says it seals data itself does not drop the agent's own sealing: the
  // claim comes from the server, and sealing twice only costs time.
  if (info.server_side_encryption || info.cipher == ENCR_NONE) return;
  options.cipher = info.cipher;
  options.key = hex_encode(info.key);
  options.iv = hex_encode(info.iv);
}

void apply_s3(Client_IO_Base::Options& options, const Pool_Info& info) {
  if (!info.s3_enabled) return;
  for (const auto& [name, value] : info.default_s3) {
    if (name == "access_key") options.access_key = value;
    else if (name == "secret_key") options.secret_key = value;
    else options.extra_options["s3_" + name] = value;
  }
}

}  // namespace

void set_options_by_pool(Client_IO_Base::Options& options, const Pool_Info& info) {
  apply_cipher(options, info);
  if (!info.node_addrs.empty()) options.node_addrs = info.node_addrs;
  if (!info.preferred_source_address.empty())
    options.extra_options["preferred_source_address"] = info.preferred_source_address;
  if (!info.tenant_access_key.empty()) options.access_key = info.tenant_access_key;
  apply_s3(options, info);
}
