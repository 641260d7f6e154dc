#include "tools/agentutil/secret_input.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>

namespace cli {
namespace {

bool ask_terminal(const char* prompt, std::string& secret) {
  std::fprintf(stderr, "%s", prompt);
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

bool read_secret(const std::string& file, const char* prompt, std::string& secret,
                 std::string& error) {
  if (!file.empty()) {
    std::ifstream in(file);
    if (in && std::getline(in, secret)) return true;
    error = "cannot read '" + file + "'";
    return false;
  }
  if (!::isatty(STDIN_FILENO)) {
    error = "no secret file given and no terminal to ask on";
    return false;
  }
  if (ask_terminal(prompt, secret)) return true;
  error = "no secret entered";
  return false;
}

}  // namespace cli
