// SPDX-License-Identifier: MIT
// The logger of the process: level filter, formatting, and where lines go.
#include "vexadm/log.h"

#include <pthread.h>
#include <stdio_ext.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "log/after_fork.h"
#include "log/call_site.h"
#include "log/thread_name.h"
#include "owners.h"

char log_msg[4096];
char str_t[128];

namespace {

static_assert(vexa::log::kMessageSize == VEXA_LOG_MESSAGE_SIZE);
static_assert(sizeof log_msg == 4096 && sizeof str_t == 128);

constexpr int kAlways = -1;

// A level without a tag shows as the marker that printf has for a missing text. That is so for
// level 5 too, although the table names it: no call can make 5 the current level, so it is no
// level of its own.
constexpr std::array<const char*, 6> kTags = {" DBUG", " INFO", "-WRN-", "=ERR=", "*CRT*", "*EMR*"};
constexpr unsigned kLastTaggedLevel = 4;
constexpr const char* kNoTag = "(null)";

// Each is one word, written by a setter while other threads log: atomic, and cheap enough to be
// read for every filtered call.
constinit std::atomic<int32_t> g_level{1};
constinit std::atomic<int32_t> g_tool_enabled{0};
constinit std::atomic<vexa_print_fn> g_print{nullptr};
static_assert(std::atomic<int32_t>::is_always_lock_free && std::atomic<vexa_print_fn>::is_always_lock_free);

// Guards log_msg and str_t, and keeps lines of several threads apart.
pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;

const char* tag_of(int level) {
  const auto index = static_cast<unsigned>(level);
  return index <= kLastTaggedLevel ? kTags[index] : kNoTag;
}

// The seconds are read apart from the milliseconds: at a second boundary the milliseconds may be
// those of the second before. The C library's gmtime_r() takes the lock of the time zone, which in
// a forked child may be held for ever.
void stamp_time() {
  timeval now{};
  gettimeofday(&now, nullptr);
  const std::chrono::sys_seconds seconds{std::chrono::seconds{std::time(nullptr)}};
  const auto midnight = std::chrono::floor<std::chrono::days>(seconds);
  const std::chrono::year_month_day date{midnight};
  const auto second = static_cast<int>((seconds - midnight).count());
  std::snprintf(str_t, sizeof str_t, "%04d-%02u-%02u %02d:%02d:%02d.%03d", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), second / 3600,
                second / 60 % 60, second % 60, static_cast<int>(now.tv_usec / 1000));
}

void build_line(int level, const char* thread, const char* function, int line, const char* message) {
  std::memset(str_t, 0, sizeof str_t);
  std::memset(log_msg, 0, sizeof log_msg);
  stamp_time();
  std::snprintf(log_msg, sizeof log_msg, "%s : %s | [%d | %d-%s] | %s %d | %s", str_t, tag_of(level),
                getpid(), get_tid(), thread, function, line, message);
}

void emit(int level, const char* function, int line, const char* message) {
  const vexa::HeapText rewritten(rewrite_func_name(function));
  const char* const shown = rewritten ? rewritten.get() : function;
  const vexa::HeapText thread = vexa::log::thread_name(getpid(), get_tid());
  build_line(level, thread ? thread.get() : "NULL", shown ? shown : "(null)", line, message);

  if (const vexa_print_fn print = g_print.load(std::memory_order_acquire)) {
    print(log_msg);
  } else {
    std::printf("%s", log_msg);
  }
}

}  // namespace

namespace vexa::log {

bool passes(int level) { return level == kAlways || g_level.load(std::memory_order_relaxed) <= level; }

int vprint(int level, char* buffer, const char* function, int line, const char* format, std::va_list values) {
  const MutexLock lock(g_mutex);
  if (!passes(level)) return 0;
  if (buffer) std::vsnprintf(buffer, kMessageSize, format, values);
  if (g_tool_enabled.load(std::memory_order_relaxed) != 0) return 1;
  emit(level, function, line, buffer ? buffer : "");
  return 0;
}

void write_line_after_fork(int level, const char* function, int line, const char* format, ...) {
  if (!passes(level)) return;
  std::array<char, 256> message;
  std::va_list values;
  va_start(values, format);
  std::vsnprintf(message.data(), message.size(), format, values);
  va_end(values);

  if (g_tool_enabled.load(std::memory_order_relaxed) != 0) {
    std::snprintf(log_msg, sizeof log_msg, "oem_fwa[%d] %s(): %s", getpid(), function, message.data());
  } else {
    std::array<char, 17> thread = {};  // the kernel's longest name and a terminator
    prctl(PR_GET_NAME, thread.data());
    std::array<char, 64> shown;
    std::snprintf(shown.data(), shown.size(), "oem%s", function + std::strlen("vexa"));
    build_line(level, thread.data(), shown.data(), line, message.data());
    if (const vexa_print_fn print = g_print.load(std::memory_order_acquire)) {
      // Never given back: the child ends soon, and a callback is called with the mutex held.
      if (pthread_mutex_trylock(&g_mutex) != 0) return;
      __fpurge(stdout);  // the host's own copy of what is pending will be printed by the host
      print(log_msg);
      return;
    }
  }
  if (write(STDOUT_FILENO, log_msg, std::strlen(log_msg)) < 0) return;
}

}  // namespace vexa::log

void vexa_set_log_level(int32_t level) {
  g_level.store(level >= 1 && level <= 4 ? level : 0, std::memory_order_relaxed);
}

int32_t vexa_get_log_level() { return g_level.load(std::memory_order_relaxed); }

void vexa_set_log_tool_enable(int32_t flag) { g_tool_enabled.store(flag, std::memory_order_relaxed); }

int32_t vexa_get_log_tool_enable() { return g_tool_enabled.load(std::memory_order_relaxed); }

void set_print_interface(vexa_print_fn callback) { g_print.store(callback, std::memory_order_release); }

int32_t get_tid() { return static_cast<int32_t>(syscall(SYS_gettid)); }

int vexa_log_printf(int32_t level, char* buf, const char* func, int32_t line, const char* fmt, ...) {
  std::va_list values;
  va_start(values, fmt);
  const int result = vexa::log::vprint(level, buf, func, line, fmt, values);
  va_end(values);
  return result;
}
