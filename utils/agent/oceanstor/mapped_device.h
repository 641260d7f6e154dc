// The host side of a mapping: a LUN or snapshot mapped to this host's lun group shows up
// as a block device named by its WWN, <dir>/wwn-0x<wwn> (lower-case hex).
//
//   oceanstor::Mapped_Device_Options options;            // dir "/dev/disk/by-id", 60 s
//   options.cancelled = [&] { return stop_requested; };
//   std::string device;
//   if (!array.attach_snapshot(snap.id, group)) return false;
//   if (!oceanstor::wait_for_device(options, snap.wwn, device)) { ...detach...; return false; }
//
// The WWN comes from the array's reply, so it is checked (hex digits only, 16 to 32 of
// them) before any path is built from it: nothing it holds can name a file outside `dir`.
// A device is ready when it opens read-only and, for a block device or regular file, its
// first sector reads. Polling backs off from 5 ms to 250 ms, bounded by the timeout and
// asked about cancellation between polls.
//
// Logging: one ACE_ERROR line per failure, naming the WWN and the directory:
//   "Device of WWN '<wwn>' did not appear in '<dir>' within <n> ms."
//   "Device of WWN '<wwn>' did not go from '<dir>' within <n> ms."
//   "Waiting for the device of WWN '<wwn>' in '<dir>' was cancelled."
//   "Refused WWN '<wwn>': not 16 to 32 hexadecimal digits."   (the text cut to 64 bytes)
//   "No device directory for WWN '<wwn>'."                        (an empty `dir`)
#pragma once

#include <functional>
#include <string>

#include "framework/base/api.h"

namespace oceanstor {

struct AGENTUTIL_API Mapped_Device_Options {
  std::string dir = "/dev/disk/by-id";
  unsigned timeout_ms = 60000;  // for the device to appear, or to go
  // Asked between polls; true stops the wait (a failure).
  std::function<bool()> cancelled;
};

// "<dir>/wwn-0x<wwn in lower case>"; false (one log line) for a WWN that is not 16 to 32
// hexadecimal digits or an empty directory. `path` is set only on success.
AGENTUTIL_API bool mapped_device_path(const std::string& dir, const std::string& wwn, std::string& path);

// True when `path` opens read-only and, for a block device or regular file, its first
// sector reads in full. Logs nothing.
AGENTUTIL_API bool device_readable(const std::string& path);

// Waits until the device of `wwn` is readable; sets `path` to it.
AGENTUTIL_API bool wait_for_device(const Mapped_Device_Options& options, const std::string& wwn, std::string& path);

// Waits until no file of `wwn`'s name is left in the directory (after a detach).
AGENTUTIL_API bool wait_for_device_gone(const Mapped_Device_Options& options, const std::string& wwn);

}  // namespace oceanstor
