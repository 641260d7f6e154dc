// Secrets for the command line (the array password, the backup server's access key, pool
// keys in a client I/O options file) never come from its arguments: they are read from a
// file or, for a single secret with no file given, asked for on the terminal without echo.
//
// A file holding secrets must be private, as ssh wants its keys: a regular file owned by
// the user (or root) that neither group nor others can read or write. Anything else is
// refused with one line saying how to fix it, before a byte of it is used.
#pragma once

#include <string>

namespace cli {

// The whole of `file` (at most 1 MiB) after the privacy checks above. False after the one
// failure line; `what` names the contents in it.
bool read_private_file(const std::string& file, const std::string& what, std::string& text);

// The secret with trailing CR and LF removed. False after the one failure line when the
// file cannot be read or is not private, when no file is given and standard input is not
// a terminal, or when the secret is empty. `what` names it in that line and in the prompt.
bool read_secret(const std::string& file, const std::string& what, std::string& secret);

}  // namespace cli
