// One file mapped shared into memory and read or written as a record of type T at
// its start, so that other processes see the record without a call.
//
// Derived (CRTP) adds its own way of naming the file, typically
// `int open(const char* name, int flags)`, and builds on open_i(). Plain paths can
// be opened through the base forms.
//
// open_i(path, flags), with POSIX open flags:
//  - maps N bytes when flags hold O_CREAT (a new or shorter file is extended to N
//    bytes; a longer one keeps its length), otherwise the whole existing file;
//  - protection read-write for O_RDWR, write-only for O_WRONLY (which mmap refuses
//    for shared mappings, so such an open fails), read-only otherwise;
//  - opens with the flags less O_CLOEXEC and mode 0640, maps shared at offset 0,
//    then sets close-on-exec on the descriptor when O_CLOEXEC was asked for;
//  - a file shorter than sizeof(T) is refused, so get() never points past the end.
// Every failure logs one line at LM_ERROR and returns -1; success returns 0.
//
// The handle owns the descriptor and the mapping (both go with it). Open and close
// from one thread; the record itself is shared memory, so concurrent readers and
// writers of it (in any process) agree among themselves on how to take turns.
#pragma once

#include <ace/Log_Msg.h>
#include <ace/Mem_Map.h>
#include <fcntl.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <type_traits>

#include "framework/base/fd_cloexec.h"
#include "framework/log/check.h"

template <class T, class Derived, size_t N>
class Mem_Map_Handle {
  static_assert(std::is_trivially_copyable<T>::value, "a mapped record must be plain bytes");
  static_assert(sizeof(T) <= N, "the record must fit in the bytes a new file gets");

 public:
  static constexpr size_t FILE_SIZE = N;
  static constexpr mode_t FILE_MODE = 0640;

  Mem_Map_Handle() = default;
  Mem_Map_Handle(const Mem_Map_Handle&) = delete;
  Mem_Map_Handle& operator=(const Mem_Map_Handle&) = delete;

  // Opens `path` as it stands. Derived classes that name files differently hide
  // this form with their own and keep the others by `using Base::open;`.
  int open(const char* path, int flags) { return open_i(path, flags); }
  int open(const std::string& path, int flags) { return derived().open(path.c_str(), flags); }
  // Read-only, for observers of the record.
  int open(const char* path) { return derived().open(path, O_RDONLY); }

  int close() {
    mapped_ = false;
    return map_.close();
  }
  // Flushes the mapped bytes to the file (msync, synchronous).
  int sync() { return mapped_ ? map_.sync() : -1; }
  // Unmaps, closes and unlinks the file.
  int remove() {
    mapped_ = false;
    return map_.remove();
  }
  const char* filename() const { return map_.filename(); }
  // The mapped length in bytes (0 when closed).
  size_t size() const { return mapped_ ? map_.size() : 0; }

  T* get() const { return mapped_ ? static_cast<T*>(map_.addr()) : nullptr; }
  T* operator->() const { return get(); }
  explicit operator bool() const { return mapped_; }

 protected:
  ~Mem_Map_Handle() = default;

  int open_i(const char* path, int flags) {
    close();
    if (AU_IS_NULL_OR_EMPTY(path)) return -1;
    const size_t length = (flags & O_CREAT) ? N : static_cast<size_t>(-1);
    const int prot = access_protection(flags);
    // No fixed address, offset 0, default security attributes.
    if (map_.map(path, length, flags & ~O_CLOEXEC, FILE_MODE, prot, MAP_SHARED, nullptr, 0) ==
        -1) {
      const int err = errno;
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to memory map %s, errno=%d, %m\n"), path, err));
      map_.close();
      return -1;
    }
    if (map_.size() < sizeof(T)) {
      ACE_ERROR((LM_ERROR,
                 ACE_TEXT("Memory mapped file %s holds %B bytes, fewer than its %B-byte record\n"),
                 path, map_.size(), sizeof(T)));
      map_.close();
      return -1;
    }
    mapped_ = true;
    if (flags & O_CLOEXEC) enable_fd_cloexec(map_.handle());
    return 0;
  }

  ACE_Mem_Map map_;

 private:
  static int access_protection(int flags) {
    if ((flags & O_ACCMODE) == O_RDWR) return PROT_READ | PROT_WRITE;
    if ((flags & O_ACCMODE) == O_WRONLY) return PROT_WRITE;
    return PROT_READ;
  }
  Derived& derived() { return static_cast<Derived&>(*this); }

  bool mapped_ = false;
};
