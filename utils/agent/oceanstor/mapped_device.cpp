#include "utils/agent/oceanstor/mapped_device.h"

#include <ace/Log_Msg.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <functional>
#include <limits>
#include <thread>

#include "framework/base/exponential_backoff.h"
#include "framework/log/loggable.h"

namespace oceanstor {

namespace {

constexpr std::size_t MIN_WWN_DIGITS = 16;  // NAA 5: 64 bits
constexpr std::size_t MAX_WWN_DIGITS = 32;  // NAA 6: 128 bits
constexpr std::size_t SHOWN_WWN_BYTES = 64;
constexpr std::size_t SECTOR_BYTES = 512;
// Short first polls: a device usually appears within milliseconds of the mapping's udev
// event; later ones back off so a slow fabric is not hammered.
constexpr unsigned FIRST_POLL_MS = 5;
constexpr unsigned LAST_POLL_MS = 250;

enum class Wait_Result { DONE, TIMED_OUT, CANCELLED };

template <class Done>
Wait_Result poll(const Mapped_Device_Options& options, Done done) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(options.timeout_ms);
  for (const unsigned delay :
       exponential_backoff(FIRST_POLL_MS, std::numeric_limits<unsigned>::max(), LAST_POLL_MS, true)) {
    if (done()) return Wait_Result::DONE;
    if (options.cancelled && options.cancelled()) return Wait_Result::CANCELLED;
    const Clock::time_point now = Clock::now();
    if (now >= deadline) return Wait_Result::TIMED_OUT;
    std::this_thread::sleep_for(std::min<Clock::duration>(deadline - now, std::chrono::milliseconds(delay)));
  }
  return Wait_Result::TIMED_OUT;
}

}  // namespace

bool mapped_device_path(const std::string& dir, const std::string& wwn, std::string& path) {
  const bool hex =
      std::all_of(wwn.begin(), wwn.end(), [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
  if (!hex || wwn.size() < MIN_WWN_DIGITS || wwn.size() > MAX_WWN_DIGITS) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Refused WWN '%C': not 16 to 32 hexadecimal digits.\n"), loggable(wwn, SHOWN_WWN_BYTES).c_str()));
    return false;
  }
  if (dir.empty()) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("No device directory for WWN '%C'.\n"), wwn.c_str()));
    return false;
  }
  std::string name = "wwn-0x" + wwn;
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
  path = dir.back() == '/' ? dir + name : dir + "/" + name;
  return true;
}

bool device_readable(const std::string& path) {
  // Non-blocking: whatever sits at the path (a FIFO, say) must not hang the wait.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return false;
  struct stat st;
  bool ready = ::fstat(fd, &st) == 0;
  if (ready && (S_ISBLK(st.st_mode) || S_ISREG(st.st_mode))) {
    char sector[SECTOR_BYTES];
    ready = ::pread(fd, sector, sizeof sector, 0) == static_cast<ssize_t>(sizeof sector);
  } else if (ready) {
    ready = S_ISCHR(st.st_mode);
  }
  ::close(fd);
  return ready;
}

namespace {

// Polls `ready` for the device of `wwn`; false after one line saying it was cancelled, or
// that the device did not `what_failed` ("appear in", "go from") the directory in time.
bool wait_until(const Mapped_Device_Options& options, const std::string& wwn, const char* what_failed,
                const std::function<bool()>& ready) {
  switch (poll(options, ready)) {
    case Wait_Result::DONE:
      return true;
    case Wait_Result::CANCELLED:
      ACE_ERROR((LM_ERROR, ACE_TEXT("Waiting for the device of WWN '%C' in '%C' was cancelled.\n"), wwn.c_str(),
                 options.dir.c_str()));
      return false;
    case Wait_Result::TIMED_OUT:
      break;
  }
  ACE_ERROR((LM_ERROR, ACE_TEXT("Device of WWN '%C' did not %C '%C' within %u ms.\n"), wwn.c_str(), what_failed,
             options.dir.c_str(), options.timeout_ms));
  return false;
}

}  // namespace

bool wait_for_device(const Mapped_Device_Options& options, const std::string& wwn, std::string& path) {
  std::string candidate;
  if (!mapped_device_path(options.dir, wwn, candidate)) return false;
  if (!wait_until(options, wwn, "appear in", [&] { return device_readable(candidate); })) return false;
  path = candidate;
  return true;
}

bool wait_for_device_gone(const Mapped_Device_Options& options, const std::string& wwn) {
  std::string path;
  if (!mapped_device_path(options.dir, wwn, path)) return false;
  return wait_until(options, wwn, "go from", [&] {
    struct stat st;
    return ::lstat(path.c_str(), &st) != 0 && errno == ENOENT;
  });
}

}  // namespace oceanstor
