#include "framework/client_io/s3_transfers.h"

#include <curl/curl.h>

#include <algorithm>

#include "framework/http/curl_global.h"

namespace {
// A broken stream's retries start afresh only after a try that brought this much: a
// server that breaks every few bytes then runs out of retries instead of being asked
// again for every few bytes of the object.
constexpr size_t PROGRESS_THAT_RENEWS_RETRIES = 1u << 20;
}  // namespace

struct S3_Transfers::Transfer {
  S3_Client::Request rq;
  S3_Client::Reply reply;
  std::unique_ptr<S3_Attempt> attempt;
  S3_Retries retries;
  CURL* curl = nullptr;  // while a try runs; otherwise waiting for `due`, or over
  Clock::time_point due;
  bool over = false;
  bool ok = false;
  std::string error;

  void fail(const std::string& why) {
    over = true;
    error = std::string("S3 ") + rq.method + " " + rq.key + ": " + why;
  }
};

S3_Transfers::S3_Transfers(const S3_Endpoint& endpoint) : endpoint_(endpoint) {
  ensure_curl_global_init();
  multi_ = curl_multi_init();
}

S3_Transfers::~S3_Transfers() {
  for (auto& kv : transfers_) park(*kv.second);
  for (CURL* c : idle_) curl_easy_cleanup(c);
  if (multi_) curl_multi_cleanup(multi_);
}

S3_Transfers::Id S3_Transfers::start(const S3_Client::Request& rq) {
  std::unique_ptr<Transfer> t(new Transfer);
  t->rq = rq;
  t->attempt.reset(new S3_Attempt(endpoint_, t->rq, t->reply));
  t->retries = S3_Retries(endpoint_);
  Transfer& started = *t;
  const Id id = next_id_++;
  transfers_[id] = std::move(t);
  run(started);
  return id;
}

void S3_Transfers::run(Transfer& t) {
  CURL* c = nullptr;
  if (!idle_.empty()) {
    c = idle_.back();
    idle_.pop_back();
  } else {
    c = curl_easy_init();
  }
  if (!c || !multi_) {
    if (c) idle_.push_back(c);
    return t.fail("no curl handle");
  }
  t.attempt->prepare(c);
  curl_easy_setopt(c, CURLOPT_PRIVATE, &t);
  if (curl_multi_add_handle(multi_, c) != CURLM_OK) {
    idle_.push_back(c);
    return t.fail("the transfer could not start");
  }
  t.curl = c;
}

void S3_Transfers::park(Transfer& t) {
  if (!t.curl) return;
  curl_multi_remove_handle(multi_, t.curl);
  idle_.push_back(t.curl);
  t.curl = nullptr;
}

// Judges finished tries; a retryable failure waits for its next delay.
void S3_Transfers::collect() {
  int left = 0;
  while (CURLMsg* m = curl_multi_info_read(multi_, &left)) {
    if (m->msg != CURLMSG_DONE) continue;
    CURL* c = m->easy_handle;
    const CURLcode rc = m->data.result;  // m dies with the handle's removal
    char* p = nullptr;
    curl_easy_getinfo(c, CURLINFO_PRIVATE, &p);
    Transfer& t = *reinterpret_cast<Transfer*>(p);
    bool retryable = false;
    t.ok = t.attempt->judge(c, rc, t.error, retryable);
    park(t);
    if (t.ok) t.error.clear();  // the earlier tries' reasons are history
    if (retryable && t.rq.sink && t.attempt->streamed_bytes() >= PROGRESS_THAT_RENEWS_RETRIES)
      t.retries.renew();
    unsigned delay_ms = 0;
    if (t.ok || !t.retries.next(retryable, delay_ms)) {
      t.over = true;
      continue;
    }
    t.due = Clock::now() + std::chrono::milliseconds(delay_ms);
  }
}

void S3_Transfers::launch_due() {
  const Clock::time_point now = Clock::now();
  for (auto& kv : transfers_) {
    Transfer& t = *kv.second;
    if (!t.over && !t.curl && t.due <= now) run(t);
  }
}

int S3_Transfers::poll_timeout_ms() const {
  auto wait = std::chrono::milliseconds(1000);
  const Clock::time_point now = Clock::now();
  for (const auto& kv : transfers_) {
    const Transfer& t = *kv.second;
    if (!t.over && !t.curl) {
      wait = std::min(wait, std::chrono::duration_cast<std::chrono::milliseconds>(t.due - now));
    }
  }
  return static_cast<int>(std::max<int64_t>(0, wait.count()));
}

void S3_Transfers::pump() {
  int running = 0;
  if (curl_multi_perform(multi_, &running) != CURLM_OK) {
    for (auto& kv : transfers_) {
      if (kv.second->curl) park(*kv.second), kv.second->fail("the transfer broke off");
    }
  }
  collect();
  launch_due();
}

bool S3_Transfers::wait(Id id, S3_Client::Reply& reply, std::string& error) {
  const auto it = transfers_.find(id);
  if (it == transfers_.end()) return (error = "no such S3 transfer"), false;
  Transfer& t = *it->second;
  for (pump(); !t.over;) poll();
  reply = std::move(t.reply);
  error = t.error;
  const bool ok = t.ok;
  transfers_.erase(it);
  return ok;
}

void S3_Transfers::cancel(Id id) {
  const auto it = transfers_.find(id);
  if (it == transfers_.end()) return;
  park(*it->second);
  transfers_.erase(it);
}

void S3_Transfers::poll() {
  curl_multi_poll(multi_, nullptr, 0, poll_timeout_ms(), nullptr);
  pump();
}

bool S3_Transfers::over(Id id) const {
  const auto it = transfers_.find(id);
  return it == transfers_.end() || it->second->over;
}

void S3_Transfers::resume(Id id) {
  const auto it = transfers_.find(id);
  if (it != transfers_.end() && it->second->curl) curl_easy_pause(it->second->curl, CURLPAUSE_CONT);
}
