// Secrets for the command line (the array password, the backup server's access key)
// never come from its arguments: they are read from a file (its first line) or, when
// no file is given, asked for on the terminal without echo.
#pragma once

#include <string>

namespace cli {

// The secret with trailing CR and LF removed. False after the one failure line when the
// file cannot be read, when no file is given and standard input is not a terminal, or
// when the secret is empty. `what` names it in that line and in the prompt.
bool read_secret(const std::string& file, const std::string& what, std::string& secret);

}  // namespace cli
