// Captures the ACE log records of the whole process (every thread) while alive,
// so tests can assert the exact text and priority of what the library logged.
#pragma once

#include <ace/Log_Priority.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace au_test {

struct Captured_Log {
  ACE_Log_Priority priority;
  std::string text;
};

class Log_Capture {
 public:
  Log_Capture();
  ~Log_Capture();
  Log_Capture(const Log_Capture&) = delete;
  Log_Capture& operator=(const Log_Capture&) = delete;

  std::vector<Captured_Log> records() const;
  void clear();

  // Records of priority p whose text equals `text` exactly.
  size_t count(ACE_Log_Priority p, const std::string& text) const;
  bool has(ACE_Log_Priority p, const std::string& text) const { return count(p, text) > 0; }
  // Records of priority p whose text contains `fragment`.
  bool has_fragment(ACE_Log_Priority p, const std::string& fragment) const;
  // The check frame "Unexpected error in <file>:<line>, <what>:\n<stack>" at LM_EMERGENCY.
  bool has_check(const std::string& what) const;
  // Every record, one per line, for failure messages.
  std::string dump() const;

  class Backend;

 private:
  std::unique_ptr<Backend> backend_;
  unsigned long saved_flags_;
};

}  // namespace au_test
