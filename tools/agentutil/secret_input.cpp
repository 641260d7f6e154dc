#include "tools/agentutil/secret_input.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
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

}  // namespace

bool read_secret(const std::string& file, const std::string& what, std::string& secret) {
  secret.clear();
  if (!file.empty()) {
    std::ifstream in(file);
    if (!in || !std::getline(in, secret)) {
      fail("cannot read the " + what + " from '" + file + "'");
      return false;
    }
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
