#include "tests/support/log_capture.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>

namespace au_test {

class Log_Capture::Backend : public ACE_Log_Msg_Backend {
 public:
  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& r) override {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.push_back({static_cast<ACE_Log_Priority>(r.type()), r.msg_data()});
    return 0;
  }
  std::vector<Captured_Log> records() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return records_;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Captured_Log> records_;
};

Log_Capture::Log_Capture() : backend_(new Backend) {
  ACE_Log_Msg* msg = ACE_Log_Msg::instance();
  saved_flags_ = msg->flags();
  ACE_Log_Msg::msg_backend(backend_.get());
  msg->set_flags(ACE_Log_Msg::CUSTOM);
  msg->clr_flags(ACE_Log_Msg::STDERR);
}

Log_Capture::~Log_Capture() {
  ACE_Log_Msg* msg = ACE_Log_Msg::instance();
  msg->clr_flags(ACE_Log_Msg::CUSTOM);
  msg->set_flags(saved_flags_);
  ACE_Log_Msg::msg_backend(nullptr);
}

std::vector<Captured_Log> Log_Capture::records() const { return backend_->records(); }
void Log_Capture::clear() { backend_->clear(); }

size_t Log_Capture::count(ACE_Log_Priority p, const std::string& text) const {
  size_t n = 0;
  for (const auto& r : records())
    if (r.priority == p && r.text == text) ++n;
  return n;
}

bool Log_Capture::has_fragment(ACE_Log_Priority p, const std::string& fragment) const {
  for (const auto& r : records())
    if (r.priority == p && r.text.find(fragment) != std::string::npos) return true;
  return false;
}

bool Log_Capture::has_check(const std::string& what) const {
  const std::string head = "Unexpected error in ";
  const std::string tail = ", " + what + ":\n";
  for (const auto& r : records()) {
    if (r.priority != LM_EMERGENCY || r.text.compare(0, head.size(), head) != 0) continue;
    const size_t at = r.text.find(tail);
    // Between the head and the tail sits "<file>:<line>" and nothing else.
    if (at != std::string::npos && r.text.find(", ", head.size()) == at) return true;
  }
  return false;
}

std::string Log_Capture::dump() const {
  std::string out;
  for (const auto& r : records()) out += "[" + std::to_string(r.priority) + "] " + r.text + "\n";
  return out;
}

}  // namespace au_test
