// SPDX-License-Identifier: MIT
// Owners of what the operating system hands out: each closes what it opened.
#ifndef VEXADM_OS_OWNERS_H
#define VEXADM_OS_OWNERS_H

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace vexa {

// A file descriptor.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      close();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }

  // Closes now. False when the close itself reports a failure (a late write error).
  bool close() {
    const int fd = std::exchange(fd_, -1);
    return fd < 0 || ::close(fd) == 0;
  }

 private:
  int fd_ = -1;
};

// A stream opened with fopen.
class File {
 public:
  explicit File(FILE* stream) : stream_(stream) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close(); }

  explicit operator bool() const { return stream_ != nullptr; }
  FILE* get() const { return stream_; }
  void close() {
    if (FILE* stream = std::exchange(stream_, nullptr)) std::fclose(stream);
  }

 private:
  FILE* stream_;
};

// Memory from malloc or calloc, as an array of T. Null when the allocation failed.
template <typename T>
class Heap {
 public:
  Heap() = default;
  explicit Heap(T* memory) : memory_(memory) {}
  static Heap zeroed(std::size_t count) { return Heap(static_cast<T*>(std::calloc(count, sizeof(T)))); }
  Heap(Heap&& other) noexcept : memory_(other.release()) {}
  Heap& operator=(Heap&& other) noexcept {
    if (this != &other) {
      std::free(memory_);
      memory_ = other.release();
    }
    return *this;
  }
  Heap(const Heap&) = delete;
  Heap& operator=(const Heap&) = delete;
  ~Heap() { std::free(memory_); }

  explicit operator bool() const { return memory_ != nullptr; }
  T* get() const { return memory_; }
  T* release() { return std::exchange(memory_, nullptr); }

 private:
  T* memory_ = nullptr;
};

using HeapText = Heap<char>;

// Holds a mutex for a scope. Inlined also where the compiler looks for small code: called, it would
// be an object with an address, and the stack protector guards each function that has one.
class MutexLock {
 public:
  [[gnu::always_inline]] explicit MutexLock(pthread_mutex_t& mutex) : mutex_(mutex) {
    pthread_mutex_lock(&mutex_);
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  [[gnu::always_inline]] ~MutexLock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t& mutex_;
};

}  // namespace vexa

#endif
