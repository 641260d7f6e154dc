#include <ace/Log_Msg.h>
#include <mntent.h>

#include <algorithm>
#include <boost/regex.hpp>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <memory>
#include <vector>

#include "framework/base/directory_iterator.h"
#include "framework/log/trace.h"
#include "utils/agent/tencent/client_io_fs_internal.h"
#include "utils/agent/tencent/tencent_utils.h"

namespace {

const char* const MOUNT_TABLE = "/etc/mtab";
const char* const PROC_ROOT = "/proc";
const char FS_TYPE[] = "fuse.clntiofs_i";
// Longer entries are cut by getmntent_r; longer command lines are not read whole.
const std::size_t MOUNT_ENTRY_BUFFER = 16 * 1024;
const std::size_t MAX_COMMAND_LINE = 128 * 1024;

const boost::regex& process_pattern() {
  static const boost::regex pattern(".*clntiofs_i.*");
  return pattern;
}

const boost::regex& url_pattern() {
  static const boost::regex pattern(R"(\s(http|https|dedup|dedups)(:\/\/\S+)\s(\S+)\s)");
  return pattern;
}

// Boost gives up (throws) on texts too complex to match; such a line matches nothing.
bool matches(const std::string& text, const boost::regex& pattern) {
  try {
    return boost::regex_match(text, pattern);
  } catch (const std::exception&) {
    return false;
  }
}

bool all_digits(const std::string& s) {
  return !s.empty() && s.size() < 10 &&
         std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The arguments of a process, each followed by one space where /proc ends it with a NUL;
// "" for a kernel thread or a process that went away meanwhile. The terminator of the last
// argument is kept: the pattern needs the blank after a mount directory given last.
std::string read_command_line(const std::string& proc_root, const std::string& pid) {
  std::ifstream in(proc_root + "/" + pid + "/cmdline", std::ios::binary);
  if (!in) return std::string();
  std::string text(MAX_COMMAND_LINE, '\0');
  in.read(&text[0], static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(in.gcount()));
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text;
}

struct Listed_Process {
  int pid;
  std::string command_line;
};

bool list_matching(const char* proc_root, std::vector<Listed_Process>& out) {
  Directory_Reader reader(proc_root);
  if (!reader.is_open()) return false;
  Directory_Entry entry;
  while (reader.next(entry)) {
    if (!entry.is_dir() || !all_digits(entry.name())) continue;
    const std::string command_line = read_command_line(proc_root, entry.name());
    if (command_line.empty() || !matches(command_line, process_pattern())) continue;
    out.push_back(Listed_Process{std::stoi(entry.name()), command_line});
  }
  if (reader.last_error() != 0) return false;
  std::sort(out.begin(), out.end(),
            [](const Listed_Process& a, const Listed_Process& b) { return a.pid < b.pid; });
  return true;
}

}  // namespace

namespace client_io_fs {

bool get_mounted_paths(const char* mount_table, std::set<std::string>& out) {
  FILE* table = ::setmntent(mount_table, "r");
  if (table == nullptr) {
    const int error = errno;
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open %C for reading, errno=%d, %m\n"), mount_table,
               error));
    return false;
  }
  std::unique_ptr<FILE, int (*)(FILE*)> closer(table, ::endmntent);
  std::vector<char> buffer(MOUNT_ENTRY_BUFFER);
  struct mntent entry;
  while (::getmntent_r(table, &entry, buffer.data(), static_cast<int>(buffer.size())) != nullptr) {
    // sizeof includes the terminator: the type must be this one, not one it begins.
    if (std::strncmp(entry.mnt_type, FS_TYPE, sizeof(FS_TYPE)) == 0) out.insert(entry.mnt_dir);
  }
  return true;
}

bool parse_command_line(const std::string& command_line, std::string& url,
                        std::string& mount_dir) {
  boost::smatch m;
  try {
    if (!boost::regex_search(command_line, m, url_pattern())) return false;
  } catch (const std::exception& e) {
    AU_DEBUG_TRACE((LM_DEBUG, ACE_TEXT("Thread %t gave up matching a command line: %C\n"), e.what()));
    return false;
  }
  url = m[1].str() + m[2].str();
  mount_dir = m[3].str();
  return true;
}

bool list_processes(const char* proc_root, const char* mount_table,
                    std::vector<Client_IO_FS_Process>& out) {
  std::vector<Listed_Process> listed;
  if (!list_matching(proc_root, listed)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list 'clintiofs_i' process.\n")));
    return false;
  }
  std::set<std::string> mounted;
  if (!get_mounted_paths(mount_table, mounted)) return false;

  std::vector<Client_IO_FS_Process> found;
  for (const Listed_Process& p : listed) {
    Client_IO_FS_Process process;
    process.pid = p.pid;
    if (!parse_command_line(p.command_line, process.url, process.mount_dir)) continue;
    process.mounted = mounted.count(process.mount_dir) != 0;
    if (!process.mounted)
      ACE_ERROR((LM_ERROR, ACE_TEXT("%C has unmonted, but process clntiofs_i (pid %d) does not exit\n"),
                 process.mount_dir.c_str(), process.pid));
    found.push_back(std::move(process));
  }
  out.swap(found);
  return true;
}

}  // namespace client_io_fs

bool get_mounted_paths(std::set<std::string>& out) {
  return client_io_fs::get_mounted_paths(MOUNT_TABLE, out);
}

bool list_client_io_fs_process(std::vector<Client_IO_FS_Process>& out) {
  return client_io_fs::list_processes(PROC_ROOT, MOUNT_TABLE, out);
}
