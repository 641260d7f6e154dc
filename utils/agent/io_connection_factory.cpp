#include "utils/agent/io_connection_factory.h"

#include <ace/Guard_T.h>
#include <ace/Log_Msg.h>

#include "framework/http/host_manager.h"
#include "framework/http/http_header_ids.h"
#include "framework/http/http_options.h"
#include "framework/log/check.h"

IO_Connection_Factory::IO_Connection_Factory() = default;

IO_Connection_Factory::IO_Connection_Factory(Options&& options) : options_(std::move(options)) {
  init();
}

IO_Connection_Factory::IO_Connection_Factory(Client_IO_Base::Options&& client_io_opts,
                                             int retry_seconds) {
  options_.client_io_opts = std::move(client_io_opts);
  options_.retry_seconds = retry_seconds;
  init();
}

bool IO_Connection_Factory::init() {
  inited_ = init_upstream();
  return inited_;
}

bool IO_Connection_Factory::init(Options&& options) {
  options_ = std::move(options);
  return init();
}

void IO_Connection_Factory::dump_options(json_spirit::Value& out) const { out = options_.dump(); }

bool IO_Connection_Factory::init_upstream() {
  const WebSocket_Options* ws = WebSocket_Options::instance();
  options_.host = ws->host();
  options_.port = ws->port();
  options_.ssl = ws->ssl();
  options_.access_key = Host_Manager::instance()->access_key();
  return init_upstream(options_.host, options_.port, options_.ssl, options_.access_key);
}

bool IO_Connection_Factory::init_upstream(const std::string& host, uint16_t port, bool ssl,
                                          const std::string& access_key) {
  // The client takes any address; one it cannot reach is refused here instead of at
  // the first lookup.
  if (AU_IS_EMPTY(host) || AU_FAILS_IF(port, ==, 0)) return false;
  upstream_.reset(host.c_str(), port, ssl);
  // A host without a key sends no header, as the framework's own clients do.
  if (!access_key.empty()) upstream_.set_header(HTTP_HEADER_ACCESS_KEY, access_key.c_str());
  return true;
}

const Pool_Info* IO_Connection_Factory::get_pool_info(const std::string& pool) {
  ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
  if (!guard.locked()) return nullptr;
  const auto cached = pools_info_.find(pool);
  if (cached != pools_info_.end()) return &cached->second;
  Pool_Info info;
  const char* device = options_.device_uuid.empty() ? nullptr : options_.device_uuid.c_str();
  if (!::get_pool_info(upstream_, pool, device, info, options_.is_restore, nullptr,
                       options_.retry_seconds, -1, true, nullptr, nullptr, false))
    return nullptr;
  return &pools_info_.emplace(pool, std::move(info)).first->second;
}

std::unique_ptr<Client_IO_Ex> IO_Connection_Factory::operator()(const std::string& pool,
                                                                Compression_Method method) {
  const Pool_Info* info = get_pool_info(pool);
  if (info == nullptr) return nullptr;
  Client_IO_Base::Options opts = options_.client_io_opts;
  opts.compression_method = method;
  const std::string refused = pool_outside_bounds(*info, options_.bounds);
  if (!refused.empty()) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Refused pool '%s': %s\n"), pool.c_str(), refused.c_str()));
    return nullptr;
  }
  set_options_by_pool(opts, *info);
  std::unique_ptr<Client_IO_Ex> io(new Client_IO_Ex());
  if (!io->connect(info->url, opts)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to connect to the pool '%s': %s\n"), pool.c_str(),
               io->last_error().c_str()));
    return nullptr;
  }
  return io;
}

std::unique_ptr<Client_IO_Ex> IO_Connection_Factory::operator()(const std::string& pool) {
  return (*this)(pool, COMPR_AUTO);
}

void set_d2t_access_rpc(Client_IO_Base::Options& opts) {
  std::string host;
  uint16_t port = 0;
  bool ssl = false;
  if (!HTTP_Options::instance()->get_local_listen_address(host, port, ssl)) return;
  opts.d2t_access_mode = Client_IO_Base::D2T_Access_RPC;
  opts.set_d2t_rpc_host(host);
  opts.set_d2t_rpc_port(port);
}
