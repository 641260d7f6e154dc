#include "framework/client_io/s3_pool_store.h"

#include <cstring>
#include <deque>
#include <map>

#include "framework/client_io/s3_replies_internal.h"
#include "framework/client_io/s3_transfers.h"

namespace {

// Three parts in flight kept the gateway busier than two (a few per cent sooner with
// 32 MiB parts); a writer holds one more part, the one it fills.
constexpr size_t PARTS_IN_FLIGHT = 3;

// Sequential reads (each starting where the last one ended) come from one streaming GET
// from there to the object's end, as curl itself reads: while a read waits, the bytes go
// straight into its buffer, and what a socket read brings beyond it into a ring; the
// transfer pauses while neither has room. Other reads are ranged GETs of exactly their
// bytes. A stream that fails for good fails the read; the next read asks again by range.
class S3_Reader : public Pool_Object_Reader, private S3_Body_Sink {
 public:
  S3_Reader(const S3_Endpoint& endpoint, std::string key, int64_t size)
      : transfers_(endpoint), key_(std::move(key)), size_(static_cast<uint64_t>(size)) {}
  ~S3_Reader() override { stop(); }
  int64_t size() const override { return static_cast<int64_t>(size_); }

  ssize_t pread(void* buf, size_t len, uint64_t offset, std::string& error) override {
    if (offset >= size_ || len == 0) return 0;
    len = static_cast<size_t>(std::min<uint64_t>(len, size_ - offset));
    // A large read from the start opens a stream too: whole-piece readers begin so.
    const bool streams = offset == next_ || (offset == 0 && len >= STREAM_FROM_START);
    const bool ok = streams ? streamed_read(static_cast<char*>(buf), len, offset, error)
                            : ranged_read(buf, len, offset, error);
    return ok ? static_cast<ssize_t>(len) : -1;
  }

 private:
  static constexpr size_t RING = 1u << 20;  // beyond one libcurl write (16 KiB) it only grows for a larger one
  static constexpr size_t STREAM_FROM_START = 1u << 20;

  std::string range() const override {
    return "bytes=" + std::to_string(stream_from_ + taken_) + "-" + std::to_string(size_ - 1);
  }

  Taken take(const char* p, size_t len) override {
    if (taken_ + len > size_ - stream_from_) return REFUSED;
    const size_t direct = std::min(len, wanted_), rest = len - direct;
    const size_t held = ring_end_ - ring_at_;
    // An empty ring takes any write, so that a waiting read always moves on.
    if (rest > 0 && held > 0 && rest > ring_.size() - held) return paused_ = true, NO_ROOM;
    if (direct > 0) std::memcpy(target_, p, direct);
    target_ += direct;
    wanted_ -= direct;
    if (rest > 0) hold(p + direct, rest);
    taken_ += len;
    return TAKEN;
  }

  // Appends to the ring, its held bytes moved to its front when the end has no room.
  void hold(const char* p, size_t n) {
    if (ring_.size() < std::max(RING, n)) ring_.resize(std::max(RING, n));
    if (ring_at_ == ring_end_) ring_at_ = ring_end_ = 0;
    if (ring_end_ + n > ring_.size()) {
      std::memmove(&ring_[0], &ring_[ring_at_], ring_end_ - ring_at_);
      ring_end_ -= ring_at_;
      ring_at_ = 0;
    }
    std::memcpy(&ring_[ring_end_], p, n);
    ring_end_ += n;
  }

  void stop() {
    if (stream_) transfers_.cancel(stream_);
    stream_ = 0;
    paused_ = false;
    ring_at_ = ring_end_ = 0;
  }

  bool ranged_read(void* buf, size_t len, uint64_t offset, std::string& error) {
    stop();
    next_ = offset + len;
    const S3_Client::Request rq = S3_Client::range_request(key_, offset, buf, len);
    S3_Client::Reply reply;
    return transfers_.wait(transfers_.start(rq), reply, error) &&
           S3_Client::range_reply_ok(rq, len, reply, error);
  }

  // The ring's bytes first, then the stream's (started here when none runs).
  bool streamed_read(char* out, size_t len, uint64_t offset, std::string& error) {
    if (offset != next_) stop();
    const size_t held = std::min(len, ring_end_ - ring_at_);
    std::memcpy(out, &ring_[ring_at_], held);
    ring_at_ += held;
    next_ = offset + len;
    if (held == len) return true;
    if (!stream_) start_stream(offset + held);
    target_ = out + held;
    wanted_ = len - held;
    if (paused_) {
      paused_ = false;  // resume() may hand the held bytes over at once
      transfers_.resume(stream_);
    }
    for (transfers_.pump(); wanted_ > 0 && !transfers_.over(stream_);) transfers_.poll();
    target_ = nullptr;
    if (wanted_ == 0) return true;
    S3_Client::Reply reply;
    if (transfers_.wait(stream_, reply, error)) error = "S3 GET " + key_ + ": short range reply";
    stream_ = 0;
    next_ = offset;  // asked again from there
    return false;
  }

  void start_stream(uint64_t from) {
    S3_Client::Request rq;
    rq.key = key_;
    rq.sink = this;
    stream_from_ = from;
    taken_ = 0;
    stream_ = transfers_.start(rq);
  }

  S3_Transfers transfers_;
  std::string key_;
  uint64_t size_;
  uint64_t next_ = UINT64_MAX;  // where a sequential read would start (none at first)
  S3_Transfers::Id stream_ = 0;
  bool paused_ = false;  // until the ring has been drained
  uint64_t stream_from_ = 0, taken_ = 0;
  std::string ring_;  // bytes [ring_at_, ring_end_) follow the last read's
  size_t ring_at_ = 0, ring_end_ = 0;
  char* target_ = nullptr;  // where the waiting read wants `wanted_` more bytes
  size_t wanted_ = 0;
};

class S3_Writer : public Pool_Object_Writer {
  static constexpr size_t COPY_SLICE = 1u << 20;

 public:
  S3_Writer(const S3_Endpoint& endpoint, std::string key, uint64_t part_size)
      : client_(endpoint), transfers_(endpoint), key_(std::move(key)), part_size_(part_size) {
    part_.reserve(part_size_);
  }

  ~S3_Writer() override {
    if (done_ || upload_id_.empty()) return;
    std::string ignored;  // best effort: the caller already has its failure
    drain(0, ignored);    // a part still landing could outlive the abort
    client_.abort_upload(key_, upload_id_, ignored);
  }

  // Bytes are copied a slice at a time with the transfers moved in between: a part's
  // whole copy took long enough for the sockets of the parts in flight to run dry.
  bool write(const void* buf, size_t len, std::string& error) override {
    const char* p = static_cast<const char*>(buf);
    while (len > 0) {
      const size_t n = std::min<size_t>({len, part_size_ - part_.size(), COPY_SLICE});
      part_.append(p, n);
      md5_.add(p, n);  // a slice at a time, while it is hot in cache
      p += n;
      len -= n;
      // A full part goes out only once more bytes follow: the last part may be small.
      if (len > 0 && part_.size() == part_size_ && !send_part(error)) return false;
      if (!in_flight_.empty()) transfers_.pump();
    }
    return true;
  }

  bool commit(std::string& error) override {
    if (upload_id_.empty()) {
      if (!client_.put(key_, part_.data(), part_.size(), error, md5_.finish())) return false;
      return done_ = true;
    }
    if (!send_part(error) || !drain(0, error)) return false;
    if (!client_.complete_upload(key_, upload_id_, etags_, sent_, error)) return false;
    return done_ = true;
  }

 private:
  struct Part {
    std::string data;
    S3_Client::Request rq;
    S3_Transfers::Id id;
  };

  bool send_part(std::string& error) {
    if (upload_id_.empty() && !client_.create_upload(key_, upload_id_, error)) return false;
    if (!drain(PARTS_IN_FLIGHT - 1, error)) return false;
    in_flight_.push_back(Part{std::move(part_), {}, 0});
    Part& p = in_flight_.back();
    p.rq = S3_Client::part_request(key_, upload_id_, ++parts_, p.data.data(), p.data.size(), md5_.finish());
    sent_ += p.data.size();
    p.id = transfers_.start(p.rq);
    part_.swap(spare_);  // the buffer of a part already sent, its pages touched
    part_.clear();
    part_.reserve(part_size_);
    return true;
  }

  // Waits until at most `keep` parts are in flight; the first failure is the answer.
  // Every part is waited for, even after one failed, so that none lands after an abort.
  bool drain(size_t keep, std::string& error) {
    bool ok = true;
    while (in_flight_.size() > keep) {
      const Part& p = in_flight_.front();
      S3_Client::Reply reply;
      std::string etag, why;
      if (transfers_.wait(p.id, reply, why) && S3_Client::part_reply_ok(p.rq, reply, etag, why)) {
        etags_.push_back(etag);
      } else if (ok) {
        ok = false;
        error = why;
      }
      spare_.swap(in_flight_.front().data);
      in_flight_.pop_front();
    }
    return ok;
  }

  S3_Client client_;
  S3_Transfers transfers_;
  std::string key_;
  uint64_t part_size_;
  std::string part_;
  std::string spare_;
  std::string upload_id_;
  unsigned parts_ = 0;
  uint64_t sent_ = 0;  // bytes in the parts started
  S3_Md5 md5_;         // of part_
  std::deque<Part> in_flight_;  // its elements stay put: requests point into their data
  std::vector<std::string> etags_;
  bool done_ = false;
};

}  // namespace

S3_Pool_Store::S3_Pool_Store(const S3_Endpoint& endpoint, uint64_t part_size)
    : endpoint_(endpoint), part_size_(part_size), client_(endpoint) {}

std::unique_ptr<Pool_Store> S3_Pool_Store::connect(const std::string& url,
                                                   const Client_IO_Base::Options& options,
                                                   std::string& error) {
  S3_Endpoint endpoint;
  if (!make_s3_endpoint(url, options, endpoint, error)) return nullptr;
  const uint64_t part = std::max(options.resume_buffer_size, MIN_RESUME_BUFFER_SIZE);
  std::unique_ptr<S3_Pool_Store> store(new S3_Pool_Store(endpoint, part));
  S3_Client::Request rq;
  rq.method = "HEAD";
  S3_Client::Reply reply;
  if (!store->client_.request(rq, reply, error)) {
    if (reply.status == 404) error = "bucket '" + endpoint.bucket + "' does not exist";
    return nullptr;
  }
  return store;
}

std::unique_ptr<Pool_Object_Reader> S3_Pool_Store::open_read(const std::string& name,
                                                             std::string& error) {
  if (!valid_piece_name(name, error)) return nullptr;
  const int64_t size = client_.head(name, error);
  if (size < 0) return nullptr;
  return std::unique_ptr<Pool_Object_Reader>(new S3_Reader(endpoint_, name, size));
}

std::unique_ptr<Pool_Object_Writer> S3_Pool_Store::open_write(const std::string& name,
                                                              std::string& error) {
  if (!valid_piece_name(name, error)) return nullptr;
  return std::unique_ptr<Pool_Object_Writer>(new S3_Writer(endpoint_, name, part_size_));
}

bool S3_Pool_Store::list(const std::string& prefix, std::vector<std::string>& names,
                         std::string& error) {
  return client_.list(prefix, names, error);
}
