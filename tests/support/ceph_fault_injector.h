// Fails librados/librbd calls on purpose, as libcurl's torture mode fails allocations: while
// an injector lives, every bound function pointer (both libraries, the asynchronous table
// too) goes through a wrapper that counts the calls and makes the k-th one return -EIO
// instead of reaching Ceph. Bind the libraries before making one (a connected Ceph_Client
// does), and make at most one at a time.
//
// Only calls whose result can say "failed" are counted and failed (signed integer
// results); the rest pass through, and so do the two completion calls that librbd never
// fails (waiting for and releasing an asynchronous request). A failed close or list
// cleanup still closes or frees, as librbd does when it reports an error there.
#pragma once

#include <string>

namespace au_test {

class Ceph_Fault_Injector {
 public:
  Ceph_Fault_Injector();
  ~Ceph_Fault_Injector();  // the real pointers back
  Ceph_Fault_Injector(const Ceph_Fault_Injector&) = delete;
  Ceph_Fault_Injector& operator=(const Ceph_Fault_Injector&) = delete;

  // Starts counting from zero; the k-th counted call fails (0: none does).
  void fail_call(int k);
  // Counted calls since fail_call().
  int calls() const;
  // The function that was failed, "" when none was.
  std::string failed() const;
};

}  // namespace au_test
