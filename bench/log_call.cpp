// SPDX-License-Identifier: MIT
// Log calls: filtered, to a callback, to /dev/null.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "call_count.h"

namespace bench {
namespace {

constexpr int kDebug = 0;
constexpr int kCritical = 4;

// ---- Filtered -------------------------------------------------------------

// A call that does nothing but log, below the level: a read into no buffer.
void filtered_call_site(benchmark::State& state) {
  const CountCalls calls(state);
  for ([[maybe_unused]] auto round : state) {
    benchmark::DoNotOptimize(vexa_dm_cache_read(1, nullptr, 4));
  }
}
BENCHMARK(filtered_call_site)->Name("log call in the library, filtered");

__attribute__((noipa)) int32_t refuse(uint32_t, const uint8_t* buffer, int32_t length) {
  return buffer == nullptr || length < 1 ? -3 : 0;
}

void least_filtered_call_site(benchmark::State& state) {
  for ([[maybe_unused]] auto round : state) benchmark::DoNotOptimize(refuse(1, nullptr, 4));
}
BENCHMARK(least_filtered_call_site)->Name("floor: log call in the library, filtered");

void filtered_call(benchmark::State& state) {
  static char message[VEXA_LOG_MESSAGE_SIZE];
  const CountCalls calls(state);
  for ([[maybe_unused]] auto round : state) {
    benchmark::DoNotOptimize(vexa_log_printf(kDebug, message, "bench", __LINE__, "value %d\n", 7));
  }
}
BENCHMARK(filtered_call)->Name("vexa_log_printf, filtered");

void least_filtered_call(benchmark::State& state) {
  static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  for ([[maybe_unused]] auto round : state) {
    pthread_mutex_lock(&mutex);
    benchmark::ClobberMemory();
    pthread_mutex_unlock(&mutex);
  }
}
BENCHMARK(least_filtered_call)->Name("floor: vexa_log_printf, filtered");

// ---- Emitted --------------------------------------------------------------

void take(const char* line) { benchmark::DoNotOptimize(line); }

// As every call site does: a zeroed buffer of its own.
void log_once() {
  char* message = static_cast<char*>(std::calloc(1, VEXA_LOG_MESSAGE_SIZE));
  vexa_log_printf(kCritical, message, "vexa_bench", __LINE__, "value %d\n", 7);
  std::free(message);
}

// The clock readings, the thread's name and the two formattings of a line.
void least_log_once(void (*print)(const char*)) {
  static char line[4096];
  static char stamp[128];
  char* message = static_cast<char*>(std::calloc(1, VEXA_LOG_MESSAGE_SIZE));
  std::snprintf(message, VEXA_LOG_MESSAGE_SIZE, "value %d\n", 7);
  std::memset(line, 0, sizeof line);
  timeval now = {};
  gettimeofday(&now, nullptr);
  const std::time_t seconds = std::time(nullptr);
  std::tm utc = {};
  gmtime_r(&seconds, &utc);
  std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d.%03d", utc.tm_year + 1900, utc.tm_mon + 1,
                utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(now.tv_usec / 1000));
  const auto thread = static_cast<int>(syscall(SYS_gettid));
  char path[64];
  char name[64] = {};
  std::snprintf(path, sizeof path, "/proc/%d/task/%d/comm", getpid(), thread);
  const int comm = open(path, O_RDONLY | O_CLOEXEC);
  if (read(comm, name, sizeof name - 1) > 0) name[std::strcspn(name, "\n")] = '\0';
  close(comm);
  std::snprintf(line, sizeof line, "%s : %s | [%d | %d-%s] | %s %d | %s", stamp, "*CRT*", getpid(), thread,
                name, "oem_bench", __LINE__, message);
  print(line);
  std::free(message);
}

void to_callback(benchmark::State& state) {
  set_print_interface(take);
  {
    const CountCalls calls(state);
    for ([[maybe_unused]] auto round : state) log_once();
  }
  set_print_interface(nullptr);
}
BENCHMARK(to_callback)->Name("log call, to a callback");

void least_to_callback(benchmark::State& state) {
  for ([[maybe_unused]] auto round : state) least_log_once(take);
}
BENCHMARK(least_to_callback)->Name("floor: log call, to a callback");

// Standard output is /dev/null for the lifetime.
class NullOutput {
 public:
  NullOutput() {
    std::fflush(stdout);
    kept_ = dup(STDOUT_FILENO);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
    close(null);
  }
  NullOutput(const NullOutput&) = delete;
  NullOutput& operator=(const NullOutput&) = delete;
  ~NullOutput() {
    std::fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
  }

 private:
  int kept_;
};

void to_null(benchmark::State& state) {
  const NullOutput output;
  const CountCalls calls(state);
  for ([[maybe_unused]] auto round : state) log_once();
}
BENCHMARK(to_null)->Name("log call, to /dev/null");

void least_to_null(benchmark::State& state) {
  const NullOutput output;
  for ([[maybe_unused]] auto round : state) least_log_once([](const char* line) { std::printf("%s", line); });
}
BENCHMARK(least_to_null)->Name("floor: log call, to /dev/null");

}  // namespace
}  // namespace bench
