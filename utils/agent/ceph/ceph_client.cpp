#include "utils/agent/ceph/ceph_client.h"

#include <ace/Log_Msg.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "framework/base/malloc_buffer.h"
#include "framework/base/snprintf_t.h"
#include "framework/log/check.h"
#include "framework/log/trace.h"
#include "utils/agent/ceph/ceph_error.h"
#include "utils/agent/ceph/ceph_image.h"
#include "utils/agent/ceph/ceph_pool.h"
#include "utils/agent/ceph/ceph_snapshot.h"
#include "utils/agent/ceph/librados_wrapper.h"
#include "utils/agent/ceph/librbd_wrapper.h"
#include "utils/agent/ceph/uri_components.h"

namespace ceph {

namespace {

// A handle slot: with close_on_destruction the last owner releases the handle through
// `make_releasing`; without, nobody does. Empty (errno ENOMEM) when memory is short.
template <class Make>
std::shared_ptr<void*> make_slot(bool close_on_destruction, Make make_releasing) {
  try {
    if (close_on_destruction) return make_releasing();
    return std::make_shared<void*>(nullptr);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return nullptr;
  }
}

// The pool shares the cluster handle and owns the new io context.
void hand_io_context(const Ceph_Context& cluster, Rados_IO_Ctx_var io_ctx, Ceph_Pool& pool) {
  Ceph_Context& ctx = pool.context();
  ctx.img_ctx_.reset();
  ctx.io_ctx_ = std::move(io_ctx);
  ctx.close_on_destruction_ = cluster.close_on_destruction_;
  ctx.ctx_ = cluster.ctx_;
}

}  // namespace

bool Ceph_Client::open_ceph_libraries() {
  AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t called Ceph_Client::open_ceph_libraries()\n")));
  if (!Librados_Wrapper::instance()->open(nullptr, nullptr)) return false;
  return Librbd_Wrapper::instance()->open(nullptr, nullptr);
}

Ceph_Client::Ceph_Client(Basic_String_Arg<char> id, bool close_on_destruction)
    : client_id_(id.c_str()) {
  ctx_.close_on_destruction_ = close_on_destruction;
  if (open_ceph_libraries()) init_cluster(id);
}

Ceph_Client::Ceph_Client(Basic_String_Arg<char> id, const Options& configs,
                         bool close_on_destruction)
    : client_id_(id.c_str()) {
  ctx_.close_on_destruction_ = close_on_destruction;
  if (open_ceph_libraries() && init_cluster(id)) connect(configs);
}

Ceph_Client::Ceph_Client(Ceph_Context ctx) : ctx_(std::move(ctx)) {}

bool Ceph_Client::init_cluster(Basic_String_Arg<char> id) {
  if (AU_IS_EMPTY(id)) return false;
  if (ctx_.ctx_) return true;
  RADOS_var slot = make_slot(ctx_.close_on_destruction_, make_cluster_var);
  if (!slot) return false;
  error_ = rados_create(slot.get(), id.c_str());
  AU_DEBUG_TRACE(
      (LM_DEBUG, ACE_TEXT("Thread %t called Client::rados_create(%@) = %d\n"), *slot, error_));
  if (error_ != 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create RADOS context: code %d, msg %s.\n"), error_,
               error().c_str()));
    return false;
  }
  ctx_.ctx_ = std::move(slot);
  return true;
}

bool Ceph_Client::set_configs(const std::string& file) {
  if (AU_IS_NULL(ctx_.ctx_)) return false;
  const char* path = file.empty() ? nullptr : file.c_str();
  error_ = rados_conf_read_file(*ctx_.ctx_, path);
  AU_DEBUG_TRACE((LM_DEBUG,
                  ACE_TEXT("Thread %t called Client::rados_conf_read_file(%@, \"%s\") = %d\n"),
                  *ctx_.ctx_, file.c_str(), error_));
  if (error_ != 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read config file:code %d, msg %s.\n"), error_,
               error().c_str()));
    return false;
  }
  return true;
}

bool Ceph_Client::set_configs(const Options& configs, bool ignore_unknown) {
  if (AU_IS_NULL(ctx_.ctx_)) return false;
  for (const auto& option : configs) {
    if (!set_config(option.first, option.second, ignore_unknown)) return false;
  }
  return true;
}

// False only for an unknown option that may not be ignored.
bool Ceph_Client::set_config(const std::string& key, const json_spirit::Value& value,
                             bool ignore_unknown) {
  // A secure string is the JSON type for secrets (a key): applied as text, never logged.
  if (value.type() != json_spirit::str_type && value.type() != json_spirit::secure_str_type) {
    ACE_ERROR((LM_WARNING,
               ACE_TEXT("Found invalid RADOS option value type %d for configuration key %s.\n"),
               static_cast<int>(value.type()), key.c_str()));
    return true;
  }
  error_ = rados_conf_set(*ctx_.ctx_, key.c_str(), value.get_str().c_str());
  if (error_ == 0) return true;
  if (error_ == -ENOENT) {
    if (!ignore_unknown || ACE::debug())
      ACE_ERROR(
          (LM_ERROR, ACE_TEXT("Found unknown RADOS configuration option '%s'.\n"), key.c_str()));
    return ignore_unknown;
  }
  ACE_ERROR((LM_ERROR,
             ACE_TEXT("Failed to set RADOS configuration option '%s': code %d, msg %s.\n"),
             key.c_str(), error_, error().c_str()));
  return true;
}

bool Ceph_Client::connect() {
  if (!ctx_.ctx_) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to connect to ceph cluster: the context wasn't initialized.\n")));
    return false;
  }
  error_ = rados_connect(*ctx_.ctx_);
  if (error_ != 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to connect to RADOS cluster: code %d, msg %s.\n"), error_,
               error().c_str()));
    return false;
  }
  return true;
}

bool Ceph_Client::connect(const Options& configs) {
  return set_configs(configs, true) && connect();
}

void Ceph_Client::shutdown() { ctx_.ctx_.reset(); }

bool Ceph_Client::list_pool(std::vector<std::string>& pools) {
  if (!ctx_.ctx_) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to connect to ceph cluster: the context wasn't initialized.\n")));
    return false;
  }
  error_ = rados_pool_list(*ctx_.ctx_, nullptr, 0);
  if (error_ < 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Unable to list RADOS pools: code %d, msg %s.\n"), error_,
               error().c_str()));
    return false;
  }
  const int length = error_;
  malloc_buffer buf(static_cast<size_t>(length));
  if (AU_IS_NULL(buf.p_)) return false;
  error_ = rados_pool_list(*ctx_.ctx_, buf.data(), buf.size());
  if (error_ < 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Unable to list RADOS pools: code %d, msg %s.\n"), error_,
               error().c_str()));
    return false;
  }
  if (error_ != length) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Unable to list RADOS pools: the count of pool changes during list.\n")));
    return false;
  }
  // NUL-terminated names ending at an empty one; never past the buffer.
  const char* end = buf.data() + buf.size();
  for (const char* name = buf.data(); name < end && *name != '\0';) {
    const std::string pool(name, strnlen(name, static_cast<size_t>(end - name)));
    pools.push_back(pool);
    name += pool.size() + 1;
  }
  return true;
}

bool Ceph_Client::open_pool(const std::string& name, Ceph_Pool& pool) {
  if (!ctx_.ctx_) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to connect to ceph cluster: the context wasn't initialized.\n")));
    return false;
  }
  Rados_IO_Ctx_var slot = make_slot(ctx_.close_on_destruction_, make_pool_var);
  if (!slot) return false;
  error_ = rados_ioctx_create(*ctx_.ctx_, name.c_str(), slot.get());
  AU_DEBUG_TRACE(
      (LM_DEBUG, ACE_TEXT("Thread %t called Pool::rados_ioctx_create(%@) = %d\n"), *slot, error_));
  if (error_ != 0) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to open the io context of the pool '%s': code %d, msg %s.\n"),
               name.c_str(), error_, error().c_str()));
    return false;
  }
  hand_io_context(ctx_, std::move(slot), pool);
  pool.pool_name(name);
  return true;
}

bool Ceph_Client::open_pool(unsigned long id, Ceph_Pool& pool) {
  return open_pool_by_id(ctx_, id, pool, &error_);
}

bool open_pool_by_id(const Ceph_Context& cluster, unsigned long id, Ceph_Pool& pool, int* error) {
  if (!cluster.ctx_) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to connect to ceph cluster: the context wasn't initialized.\n")));
    return false;
  }
  if (rados_ioctx_create2 == nullptr) {
    ACE_ERROR((LM_ERROR,
               ACE_TEXT("Failed to open the io context of the pool '%Q': the "
                        "version of librados is too old.\n"),
               static_cast<ACE_UINT64>(id)));
    return false;
  }
  Rados_IO_Ctx_var slot = make_slot(cluster.close_on_destruction_, make_pool_var);
  if (!slot) return false;
  const int r = rados_ioctx_create2(*cluster.ctx_, static_cast<int64_t>(id), slot.get());
  if (error != nullptr) *error = r;
  AU_DEBUG_TRACE(
      (LM_DEBUG, ACE_TEXT("Thread %t called Client::rados_create(%@) = %d\n"), *slot, r));
  if (r != 0) {
    // "%lu" is printf's, not ACE's (ACE reads %l as the line number): format it first.
    const snprintf_t<128> text(
        "Failed to open the io context of the pool '%lu': code %d, msg %s.\n", id, r,
        Ceph_Error(r).text());
    ACE_ERROR((LM_ERROR, ACE_TEXT("%s"), text.c_str()));
    return false;
  }
  hand_io_context(cluster, std::move(slot), pool);
  return true;
}

bool Ceph_Client::open_image(const std::string& pool_name, const std::string& img_name,
                             Ceph_Image& image, bool read_only) {
  if (AU_IS_EMPTY(pool_name)) return false;
  if (AU_IS_EMPTY(img_name)) return false;
  Ceph_Pool pool;
  return open_pool(pool_name, pool) && pool.open_image(img_name, image, read_only);
}

bool Ceph_Client::open_image(const std::string& uri, Ceph_Image& image, bool read_only) {
  const URI_Components parts(uri);
  if (parts.type == URI_Components::UNKNOWN) {
    ACE_ERROR(
        (LM_ERROR, ACE_TEXT("Failed to open image by uri '%s': unrecognized uri.\n"), uri.c_str()));
    return false;
  }
  return open_image(parts.pool, parts.img, image, read_only);
}

bool Ceph_Client::open_snapshot(const std::string& pool_name, const std::string& img_name,
                                const std::string& snap_name, Ceph_Snapshot& snap, bool read_only) {
  if (AU_IS_EMPTY(pool_name)) return false;
  if (AU_IS_EMPTY(img_name)) return false;
  if (AU_IS_EMPTY(snap_name)) return false;
  Ceph_Pool pool;
  return open_pool(pool_name, pool) && pool.open_snapshot(img_name, snap_name, snap, read_only);
}

bool Ceph_Client::open_snapshot(const std::string& uri, Ceph_Snapshot& snap, bool read_only) {
  const URI_Components parts(uri);
  if (parts.type != URI_Components::SNAPSHOT) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open snapshot by uri '%s': unrecognized uri.\n"),
               uri.c_str()));
    return false;
  }
  return open_snapshot(parts.pool, parts.img, parts.snap, snap, read_only);
}

bool Ceph_Client::diff_iterate(const std::string& uri, Basic_String_Arg<char> from_snap,
                               Diff_Callback cb) {
  const URI_Components parts(uri);
  switch (parts.type) {
    case URI_Components::IMAGE: {
      if (!from_snap.empty()) {
        ACE_ERROR((LM_ERROR,
                   ACE_TEXT("Can't iterate over an image '%s' that using a snapshot "
                            "'%s' as the starting point.\n"),
                   uri.c_str(), from_snap.c_str()));
        return false;
      }
      // The head is opened writable, a snapshot read-only: what each open needs.
      Ceph_Image image;
      return open_image(parts.pool, parts.img, image, false) && image.diff_iterate(cb);
    }
    case URI_Components::SNAPSHOT: {
      Ceph_Snapshot snap;
      return open_snapshot(parts.pool, parts.img, parts.snap, snap, true) &&
             snap.diff_iterate(from_snap.str(), cb, 0, 0);
    }
    default:
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to diff iterate over uri '%s': invalid uri.\n"),
                 uri.c_str()));
      return false;
  }
}

std::string Ceph_Client::error() const {
  return error_ < 0 ? std::string(Ceph_Error(error_).text()) : std::string();
}

std::string Ceph_Client::to_uri(const std::string& pool, const std::string& img) {
  URI_Components parts;
  parts.type = URI_Components::IMAGE;
  parts.pool = pool;
  parts.img = img;
  return parts.to_uri();
}

std::string Ceph_Client::to_uri(const std::string& pool, const std::string& img,
                                const std::string& snap) {
  URI_Components parts;
  parts.type = URI_Components::SNAPSHOT;
  parts.pool = pool;
  parts.img = img;
  parts.snap = snap;
  return parts.to_uri();
}

}  // namespace ceph
