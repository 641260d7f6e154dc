// Ctrl-C handling for long operations: the first SIGINT/SIGTERM only raises a flag
// that the operation's cancel callback reads, so the library unwinds cleanly
// (handles closed, partial output flushed). A second signal ends the process.
#pragma once

namespace cli {

void install_cancel_handler();
bool cancel_requested();

}  // namespace cli
