// SPDX-License-Identifier: MIT
#include "call_count.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

namespace {

// The benchmarks run in one thread; the counters cost next to nothing that way.
bench::CallCount g_calls;

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);

int fsync(int fd) {
  ++g_calls.syncs;
  return static_cast<int>(syscall(SYS_fsync, fd));
}

int fdatasync(int fd) {
  ++g_calls.syncs;
  return static_cast<int>(syscall(SYS_fdatasync, fd));
}

void* malloc(std::size_t size) {
  ++g_calls.allocations;
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  ++g_calls.allocations;
  return __libc_calloc(count, size);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  using Lock = int (*)(pthread_mutex_t*);
  static const Lock next = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  ++g_calls.locks;
  return next(mutex);
}

}  // extern "C"

namespace bench {

CallCount calls_so_far() { return g_calls; }

CountCalls::~CountCalls() {
  const CallCount now = calls_so_far();
  const auto iterations = static_cast<double>(state_.iterations());
  const auto each = [&](uint64_t after, uint64_t before) {
    return static_cast<double>(after - before) / iterations;
  };
  const double allocations = each(now.allocations, before_.allocations);
  const double locks = each(now.locks, before_.locks);
  state_.counters["allocations"] = allocations;
  state_.counters["locks"] = locks;
}

}  // namespace bench
