#include "framework/client_io/s3_pool_store.h"

#include <cstring>
#include <deque>
#include <map>

#include "framework/client_io/s3_transfers.h"

namespace {

constexpr size_t PARTS_IN_FLIGHT = 4;

// Sequential reads (each starting where the last one ended) are served from 8 MiB
// chunks fetched ahead by concurrent ranged GETs, so a restore streams like one long
// GET; other reads fetch exactly their range.
class S3_Reader : public Pool_Object_Reader {
 public:
  S3_Reader(const S3_Endpoint& endpoint, std::string key, int64_t size)
      : transfers_(endpoint), key_(std::move(key)), size_(size) {}
  ~S3_Reader() override { drop(chunks_.begin(), chunks_.end()); }
  int64_t size() const override { return size_; }

  ssize_t pread(void* buf, size_t len, uint64_t offset, std::string& error) override {
    const uint64_t size = static_cast<uint64_t>(size_);
    if (offset >= size || len == 0) return 0;
    len = static_cast<size_t>(std::min<uint64_t>(len, size - offset));
    const bool sequential = offset == next_;
    next_ = offset + len;
    if (!sequential) {
      drop(chunks_.begin(), chunks_.end());
      return get(S3_Client::range_request(key_, offset, buf, len), len, error) ? static_cast<ssize_t>(len) : -1;
    }
    for (size_t done = 0; done < len;) {
      const uint64_t at = offset + done, index = at / CHUNK;
      const Chunk& c = chunk(index);
      if (!c.error.empty()) {
        error = c.error;
        chunks_.erase(index);  // the next read asks again
        return -1;
      }
      const size_t n = std::min<size_t>(len - done, c.data.size() - (at - index * CHUNK));
      std::memcpy(static_cast<char*>(buf) + done, c.data.data() + (at - index * CHUNK), n);
      done += n;
    }
    drop(chunks_.begin(), chunks_.lower_bound(next_ / CHUNK));
    for (uint64_t i = next_ / CHUNK; i <= next_ / CHUNK + AHEAD; ++i) fetch(i);
    transfers_.pump();
    return static_cast<ssize_t>(len);
  }

 private:
  static constexpr uint64_t CHUNK = 8u << 20;
  static constexpr uint64_t AHEAD = 3;
  struct Chunk {
    std::string data;
    std::string error;
    S3_Transfers::Id id = 0;  // while its GET runs
  };
  using Chunks = std::map<uint64_t, Chunk>;

  bool get(const S3_Client::Request& rq, size_t len, std::string& error) {
    S3_Client::Reply reply;
    return transfers_.wait(transfers_.start(rq), reply, error) &&
           S3_Client::range_reply_ok(rq, len, reply, error);
  }

  void fetch(uint64_t index) {
    const uint64_t from = index * CHUNK;
    if (from >= static_cast<uint64_t>(size_) || chunks_.count(index)) return;
    Chunk& c = chunks_[index];
    if (!spare_.empty()) {  // pages already touched: no zero-fill, no page faults
      c.data.swap(spare_.back());
      spare_.pop_back();
    }
    c.data.resize(std::min<uint64_t>(CHUNK, size_ - from));
    c.id = transfers_.start(S3_Client::range_request(key_, from, &c.data[0], c.data.size()));
  }

  const Chunk& chunk(uint64_t index) {
    fetch(index);
    Chunk& c = chunks_[index];
    if (c.id == 0) return c;
    const S3_Client::Request rq = S3_Client::range_request(key_, index * CHUNK, &c.data[0], c.data.size());
    S3_Client::Reply reply;
    const bool ok = transfers_.wait(c.id, reply, c.error) &&
                    S3_Client::range_reply_ok(rq, c.data.size(), reply, c.error);
    c.id = 0;
    if (!ok) c.data.clear();
    return c;
  }

  void drop(Chunks::iterator from, Chunks::iterator to) {
    for (auto i = from; i != to; ++i) {
      if (i->second.id) transfers_.cancel(i->second.id);
      if (spare_.size() <= AHEAD) spare_.push_back(std::move(i->second.data));
    }
    chunks_.erase(from, to);
  }

  S3_Transfers transfers_;
  std::string key_;
  int64_t size_;
  uint64_t next_ = UINT64_MAX;  // where a sequential read would start (none at first)
  Chunks chunks_;
  std::vector<std::string> spare_;  // buffers of chunks already handed out
};

class S3_Writer : public Pool_Object_Writer {
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

  bool write(const void* buf, size_t len, std::string& error) override {
    const char* p = static_cast<const char*>(buf);
    while (len > 0) {
      const size_t n = std::min<size_t>(len, part_size_ - part_.size());
      part_.append(p, n);
      p += n;
      len -= n;
      // A full part goes out only once more bytes follow: the last part may be small.
      if (len > 0 && part_.size() == part_size_ && !send_part(error)) return false;
    }
    transfers_.pump();
    return true;
  }

  bool commit(std::string& error) override {
    if (upload_id_.empty()) {
      if (!client_.put(key_, part_.data(), part_.size(), error)) return false;
      return done_ = true;
    }
    if (!send_part(error) || !drain(0, error)) return false;
    if (!client_.complete_upload(key_, upload_id_, etags_, error)) return false;
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
    p.rq = S3_Client::part_request(key_, upload_id_, ++parts_, p.data.data(), p.data.size());
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
