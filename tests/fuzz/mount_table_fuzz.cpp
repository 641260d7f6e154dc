// The mount table and /proc command lines are text other programs write. The input is
// a two-byte length, a mount table of that length, then the NUL-separated arguments
// of one process; both are laid out as files and read back by the library. Listed
// processes must agree with the command-line parser and with the mount-table reader.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "tests/fuzz/quiet_log.h"
#include "utils/agent/tencent/client_io_fs_internal.h"

namespace {

const int PID = 4242;

struct Layout {
  std::string root;
  std::string mount_table;
  std::string proc_root;
  std::string cmdline;
};

const Layout& layout() {
  static const Layout paths = [] {
    char dir[] = "/tmp/au-fuzz-mounts-XXXXXX";
    if (::mkdtemp(dir) == nullptr) std::abort();
    Layout l;
    l.root = dir;
    l.mount_table = l.root + "/mtab";
    l.proc_root = l.root + "/proc";
    l.cmdline = l.proc_root + "/" + std::to_string(PID) + "/cmdline";
    if (::mkdir(l.proc_root.c_str(), 0700) != 0 ||
        ::mkdir((l.proc_root + "/" + std::to_string(PID)).c_str(), 0700) != 0)
      std::abort();
    return l;
  }();
  return paths;
}

// Replays run in every make test; each run leaves no directory behind.
void remove_layout() {
  const Layout& l = layout();
  ::unlink(l.cmdline.c_str());
  ::rmdir((l.proc_root + "/" + std::to_string(PID)).c_str());
  ::rmdir(l.proc_root.c_str());
  ::unlink(l.mount_table.c_str());
  ::rmdir(l.root.c_str());
}

void write_file(const std::string& path, const char* data, std::size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(data, static_cast<std::streamsize>(size));
  if (!out) std::abort();
}

// What the library should make of the argument bytes: every NUL a space, the last
// argument's too (a mount directory given last needs the blank after it; regressions/
// mount_table-1 is one whose last argument only looked like two).
std::string joined(std::string args) {
  for (char& c : args)
    if (c == '\0') c = ' ';
  return args;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  au_fuzz::quiet_log();
  layout();
  std::atexit(remove_layout);  // after layout() is built, so it runs before its destructor
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const char* text = reinterpret_cast<const char*>(data) + 2;
  std::size_t table_size = data[0] | (std::size_t(data[1]) << 8);
  if (table_size > size - 2) table_size = size - 2;
  const std::string args(text + table_size, size - 2 - table_size);
  write_file(layout().mount_table, text, table_size);
  write_file(layout().cmdline, args.data(), args.size());

  std::set<std::string> mounted;
  if (!client_io_fs::get_mounted_paths(layout().mount_table.c_str(), mounted)) __builtin_trap();

  std::vector<Client_IO_FS_Process> processes;
  if (!client_io_fs::list_processes(layout().proc_root.c_str(), layout().mount_table.c_str(), processes))
    __builtin_trap();
  // Whether a line is listed at all also depends on the process-name match (which may
  // give up on odd text), so only a listed process is held to the parser's result.
  if (processes.empty()) return 0;
  std::string url, mount_dir;
  if (processes.size() != 1 || !client_io_fs::parse_command_line(joined(args), url, mount_dir)) __builtin_trap();
  const Client_IO_FS_Process& p = processes[0];
  if (p.pid != PID || p.url != url || p.mount_dir != mount_dir || p.mounted != (mounted.count(mount_dir) != 0))
    __builtin_trap();
  return 0;
}
