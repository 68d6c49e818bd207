// SPDX-License-Identifier: MIT
// A log line beside the same line of spdlog, both thrown away; and apart what the line's promises
// cost: the thread's name, which is asked for anew, and the zeroed buffer of each call.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vexadm/log.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "call_count.h"

namespace bench {
namespace {

constexpr int kCritical = 4;

void drop(const char* line) { benchmark::DoNotOptimize(line); }

// As every call site does.
void line_of_the_library(benchmark::State& state) {
  set_print_interface(drop);
  {
    const CountCalls calls(state);
    for ([[maybe_unused]] auto round : state) {
      char* message = static_cast<char*>(std::calloc(1, VEXA_LOG_MESSAGE_SIZE));
      vexa_log_printf(kCritical, message, "vexa_bench", __LINE__, "value %d\n", 7);
      std::free(message);
    }
  }
  set_print_interface(nullptr);
}
BENCHMARK(line_of_the_library)->Name("log line (floor: spdlog's, made)");
BENCHMARK(line_of_the_library)->Name("log line (floor: spdlog's, not made)");

// Makes the line, as a sink that writes would, and drops it.
class DroppingSink : public spdlog::sinks::base_sink<std::mutex> {
 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    benchmark::DoNotOptimize(line.data());
  }
  void flush_() override {}
};

void log_with(benchmark::State& state, spdlog::logger& logger) {
  logger.set_pattern("%Y-%m-%d %H:%M:%S.%e : %l | [%P | %t] | %! %# | %v", spdlog::pattern_time_type::utc);
  for ([[maybe_unused]] auto round : state) {
    logger.log(spdlog::source_loc{__FILE__, __LINE__, "bench"}, spdlog::level::critical, "value {}\n", 7);
  }
}

void line_of_spdlog(benchmark::State& state) {
  spdlog::logger logger("bench", std::make_shared<DroppingSink>());
  log_with(state, logger);
}
BENCHMARK(line_of_spdlog)->Name("floor: log line (floor: spdlog's, made)");

// The message alone is formatted: a null sink asks for no line.
void message_of_spdlog(benchmark::State& state) {
  spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_mt>());
  log_with(state, logger);
}
BENCHMARK(message_of_spdlog)->Name("floor: log line (floor: spdlog's, not made)");

// ---- What the promises cost -------------------------------------------------

void name_from_proc(benchmark::State& state) {
  for ([[maybe_unused]] auto round : state) {
    char* path = static_cast<char*>(std::calloc(1, 1024));
    char* name = static_cast<char*>(std::calloc(1, 1024));
    std::snprintf(path, 1024, "/proc/%d/task/%d/comm", getpid(), static_cast<int>(syscall(SYS_gettid)));
    const int comm = open(path, O_RDONLY | O_CLOEXEC);
    if (read(comm, name, 1023) > 0) name[std::strcspn(name, "\n")] = '\0';
    close(comm);
    benchmark::DoNotOptimize(name);
    std::free(name);
    std::free(path);
  }
}
BENCHMARK(name_from_proc)->Name("of it: thread's name from /proc");

// From the kernel as well, without a file.
void name_from_the_kernel(benchmark::State& state) {
  char name[16] = {};
  for ([[maybe_unused]] auto round : state) {
    pthread_getname_np(pthread_self(), name, sizeof name);
    benchmark::DoNotOptimize(name);
  }
}
BENCHMARK(name_from_the_kernel)->Name("floor: of it: thread's name from /proc");

void zeroed_buffer(benchmark::State& state) {
  for ([[maybe_unused]] auto round : state) {
    void* message = std::calloc(1, VEXA_LOG_MESSAGE_SIZE);
    benchmark::DoNotOptimize(message);
    std::free(message);
  }
}
BENCHMARK(zeroed_buffer)->Name("of it: zeroed buffer of 4220 bytes");

void plain_buffer(benchmark::State& state) {
  for ([[maybe_unused]] auto round : state) {
    void* message = std::malloc(VEXA_LOG_MESSAGE_SIZE);
    benchmark::DoNotOptimize(message);
    std::free(message);
  }
}
BENCHMARK(plain_buffer)->Name("floor: of it: zeroed buffer of 4220 bytes");

}  // namespace
}  // namespace bench
