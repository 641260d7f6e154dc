// Several S3 requests in flight at once on libcurl's multi interface, moved only by the
// calling thread: transfers progress while it is inside pump() or wait() and otherwise
// rest in the sockets' buffers, so the library starts no thread of its own. Each request
// is retried as S3_Client::request() retries it (S3_Retries); a streaming GET always
// resumes where it stopped, and with fresh delays when the broken try brought 1 MiB or
// more.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/client_io/s3_client.h"

typedef void CURLM;

class S3_Transfers {
 public:
  using Id = uint64_t;

  explicit S3_Transfers(const S3_Endpoint& endpoint);
  ~S3_Transfers();  // unfinished transfers are cut off
  S3_Transfers(const S3_Transfers&) = delete;
  S3_Transfers& operator=(const S3_Transfers&) = delete;

  // Starts `rq`. Its buffers stay the caller's and must live until the transfer has been
  // waited for or cancelled.
  Id start(const S3_Client::Request& rq);
  // Moves every transfer until `id` is over; true for its success. Either way `id` is
  // forgotten.
  bool wait(Id id, S3_Client::Reply& reply, std::string& error);
  // Moves what can move without blocking.
  void pump();
  // Waits until a socket is ready or a retry is due (a second at most), then pumps.
  void poll();
  // True once `id` has succeeded or failed for good; wait() then returns at once.
  bool over(Id id) const;
  // Lets `id` go on after its sink had no room (S3_Body_Sink::NO_ROOM); the held bytes
  // may reach the sink from inside this call.
  void resume(Id id);
  // Cuts `id` off, wherever it is.
  void cancel(Id id);

 private:
  struct Transfer;
  using Clock = std::chrono::steady_clock;

  void run(Transfer& t);
  void collect();
  void launch_due();
  int poll_timeout_ms() const;
  void park(Transfer& t);

  S3_Endpoint endpoint_;
  CURLM* multi_ = nullptr;
  std::vector<CURL*> idle_;  // easy handles kept for the next transfer
  std::map<Id, std::unique_ptr<Transfer>> transfers_;
  Id next_id_ = 1;
};
