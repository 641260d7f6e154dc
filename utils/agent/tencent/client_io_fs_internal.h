// The readers behind get_mounted_paths() and list_client_io_fs_process(), aimed at
// another mount table or /proc tree. For tests; agent code uses the public forms.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "utils/agent/tencent/tencent_utils.h"

namespace client_io_fs {

bool get_mounted_paths(const char* mount_table, std::set<std::string>& out);

bool list_processes(const char* proc_root, const char* mount_table,
                    std::vector<Client_IO_FS_Process>& out);

// Takes the URL and the mount directory out of a clntiofs_i command line (each argument
// followed by one space). False when it names none; never throws.
bool parse_command_line(const std::string& command_line, std::string& url, std::string& mount_dir);

}  // namespace client_io_fs
