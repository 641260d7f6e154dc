// Secrets for the command line never come from its arguments: they are read from a
// file (first line) or, when no file is given, asked for on the terminal without echo.
#pragma once

#include <string>

namespace cli {

// False with `error` set when the file cannot be read, or when no file is given and
// standard input is not a terminal.
bool read_secret(const std::string& file, const char* prompt, std::string& secret,
                 std::string& error);

}  // namespace cli
