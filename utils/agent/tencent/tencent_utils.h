// Remote object and deduplicating stores mounted on an agent host as a user-space
// file system served by the client-I/O process "clntiofs_i" (type "fuse.clntiofs_i"):
// asking an agent, over a forwarded JSON-RPC call, to mount, unmount or measure such
// storage, and listing the local mounts and the processes that serve them.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "framework/base/api.h"
#include "framework/json/value.h"

// Asks the agent on channel `host` to mount `remote_url` at `mnt` as `user`. The
// compression pair is sent when compress_method is given; the encryption method with
// the key and IV (both required then, sent in Base64) when encryption_method is
// given; origin_url when given. True when the agent reports success; *has_mounted
// (when not null) then says whether the directory was mounted already.
AGENTUTIL_API bool request_agent_to_mount(const char* method, const char* host,
                                          const char* remote_url, const char* mnt, const char* user,
                                          unsigned long retry_timeout, unsigned long limit_rate,
                                          const char* compress_method, unsigned long compress_level,
                                          const char* encryption_method, const char* encryption_key,
                                          const char* encryption_iv, const char* origin_url,
                                          bool* has_mounted);

// Asks the agent on channel `host` to unmount `mnt`; true when it reports success.
AGENTUTIL_API bool request_agent_to_umount(const char* method, const char* host, const char* mnt);

// The total size in bytes of `files` on the agent's storage, or -1 after one log line
// when it cannot be had.
AGENTUTIL_API int64_t request_agent_to_get_storage_file_size(
    const char* method, const char* host, const std::vector<json_spirit::Value>& files);

// Adds to `out` the mount directory of every "fuse.clntiofs_i" entry of "/etc/mtab".
// False, with one log line, when the table cannot be read.
AGENTUTIL_API bool get_mounted_paths(std::set<std::string>& out);

// One running clntiofs_i process and the storage it serves.
struct AGENTUTIL_API Client_IO_FS_Process {
  int pid = 0;
  // "http://...", "https://...", "dedup://..." or "dedups://...".
  std::string url;
  std::string mount_dir;
  // False when mount_dir is not among the mounted paths: the mount went away but the
  // process stayed.
  bool mounted = false;
};

// Replaces `out` with the running clntiofs_i processes whose command line names a
// URL and a mount directory, in pid order. False, with one log line, when the
// processes or the mount table cannot be read.
AGENTUTIL_API bool list_client_io_fs_process(std::vector<Client_IO_FS_Process>& out);
