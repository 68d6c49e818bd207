// SPDX-License-Identifier: MIT
// The logger of the process: level filter, formatting, and where lines go.
#include "vexadm/log.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

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
// those of the second before.
void stamp_time() {
  timeval now{};
  gettimeofday(&now, nullptr);
  const std::time_t seconds = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::snprintf(str_t, sizeof str_t, "%04d-%02d-%02d %02d:%02d:%02d.%03d", utc.tm_year + 1900, utc.tm_mon + 1,
                utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(now.tv_usec / 1000));
}

void emit(int level, const char* function, int line, const char* message) {
  std::memset(str_t, 0, sizeof str_t);
  std::memset(log_msg, 0, sizeof log_msg);
  stamp_time();

  const vexa::HeapText rewritten(rewrite_func_name(function));
  const char* const shown = rewritten ? rewritten.get() : function;
  const int pid = getpid();
  const int tid = get_tid();
  const vexa::HeapText thread = vexa::log::thread_name(pid, tid);

  std::snprintf(log_msg, sizeof log_msg, "%s : %s | [%d | %d-%s] | %s %d | %s", str_t, tag_of(level), pid,
                tid, thread ? thread.get() : "NULL", shown ? shown : "(null)", line, message);

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
