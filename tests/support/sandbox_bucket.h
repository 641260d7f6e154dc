// A bucket of its own on the sandbox's S3 gateway for one test: made from the gateway's
// address and keys, emptied and removed by remove() (or, quietly, when it goes).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "framework/client_io/s3_client.h"
#include "tests/support/ceph_env.h"

namespace au_test {

class Sandbox_Bucket {
 public:
  ~Sandbox_Bucket() {
    std::string ignored;
    remove(ignored);
  }

  // `url` is s3://host:port/bucket; `keys` carries the gateway's keys, and they are
  // what keys() hands out afterwards.
  bool create(const std::string& url, const Client_IO_Base::Options& keys, std::string& error) {
    keys_ = keys;
    S3_Endpoint endpoint;
    if (!make_s3_endpoint(url, keys, endpoint, error)) return false;
    client_.reset(new S3_Client(endpoint));
    return client_->create_bucket(error);
  }
  bool create(const Sandbox_S3& s3, const std::string& url, std::string& error) {
    return create(url, keys_of(s3), error);
  }

  // Every object, then the bucket; true when the bucket is gone (or was never made).
  bool remove(std::string& error) {
    if (!client_) return true;
    std::vector<std::string> names;
    client_->list("", names, error);
    S3_Client::Reply reply;
    S3_Client::Request rq;
    rq.method = "DELETE";
    for (const std::string& n : names) {
      rq.key = n;
      client_->request(rq, reply, error);
    }
    rq.key.clear();
    const bool gone = client_->request(rq, reply, error);
    client_.reset();
    return gone;
  }

  S3_Client& client() { return *client_; }
  const Client_IO_Base::Options& keys() const { return keys_; }

  static Client_IO_Base::Options keys_of(const Sandbox_S3& s3) {
    Client_IO_Base::Options keys;
    keys.access_key = s3.access_key;
    keys.secret_key = s3.secret_key;
    return keys;
  }

 private:
  std::unique_ptr<S3_Client> client_;
  Client_IO_Base::Options keys_;
};

}  // namespace au_test
