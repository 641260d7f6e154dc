#include "tools/agentutil/secret_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "tools/agentutil/cli_common.h"

namespace cli {
namespace {

bool ask_terminal(const std::string& what, std::string& secret) {
  std::fprintf(stderr, "%s: ", what.c_str());
  std::fflush(stderr);
  termios saved {};
  const bool echo_off = ::tcgetattr(STDIN_FILENO, &saved) == 0;
  if (echo_off) {
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  const bool ok = static_cast<bool>(std::getline(std::cin, secret));
  if (echo_off) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
  std::fputc('\n', stderr);
  return ok;
}

constexpr size_t MAX_PRIVATE_FILE = 1u << 20;

std::string mode_text(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

// Why `st` is not a private file of this user, or "".
std::string not_private(const struct stat& st) {
  if (!S_ISREG(st.st_mode)) return "is not a regular file";
  if (st.st_uid != ::geteuid() && st.st_uid != 0) return "belongs to another user";
  if (st.st_mode & (S_IRWXG | S_IRWXO)) {
    return "is open to group or others (mode " + mode_text(st.st_mode) + "); chmod 600 it";
  }
  return "";
}

}  // namespace

bool read_private_file(const std::string& file, const std::string& what, std::string& text) {
  text.clear();
  // Not blocking: a FIFO planted under the name must not hang the command.
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat st {};
  if (fd < 0 || ::fstat(fd, &st) != 0) {
    const std::string why = std::strerror(errno);
    if (fd >= 0) ::close(fd);
    fail("cannot read the " + what + " from '" + file + "': " + why);
    return false;
  }
  const std::string refused = not_private(st);
  if (refused.empty() && st.st_size > static_cast<off_t>(MAX_PRIVATE_FILE)) {
    ::close(fd);
    fail("'" + file + "' holding the " + what + " is larger than 1 MiB");
    return false;
  }
  if (!refused.empty()) {
    ::close(fd);
    fail("'" + file + "' holding the " + what + " " + refused);
    return false;
  }
  char buffer[4096];
  ssize_t n = 0;
  while ((n = ::read(fd, buffer, sizeof buffer)) > 0 && text.size() < MAX_PRIVATE_FILE) text.append(buffer, n);
  ::close(fd);
  if (n < 0) {
    fail("cannot read the " + what + " from '" + file + "'");
    return false;
  }
  return true;
}

bool read_secret(const std::string& file, const std::string& what, std::string& secret) {
  secret.clear();
  if (!file.empty()) {
    if (!read_private_file(file, what, secret)) return false;
    secret = secret.substr(0, secret.find('\n'));
  } else if (!::isatty(STDIN_FILENO)) {
    fail("no " + what + " file given and no terminal to ask on");
    return false;
  } else if (!ask_terminal(what, secret)) {
    fail("no " + what + " entered");
    return false;
  }
  while (!secret.empty() && (secret.back() == '\r' || secret.back() == '\n')) secret.pop_back();
  if (secret.empty()) {
    fail("the " + what + " is empty");
    return false;
  }
  return true;
}

}  // namespace cli
