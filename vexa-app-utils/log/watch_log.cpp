// SPDX-License-Identifier: MIT
// The pair of watch files.
#include "vexadm/watch_log.h"

#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <span>

#include "descriptor_read.h"
#include "owners.h"

namespace {

constexpr const char* kFileA = "/data/oem/logs/fwawatchA.log";
constexpr const char* kFileB = "/data/oem/logs/fwawatchB.log";
constexpr off_t kLimit = 1048576;

// Which file is emptied next. Without a lock, as each call stands for itself: two that come at
// once may empty both.
constinit std::atomic<bool> g_empty_b{false};

// The decimal point of the thread's numbers, whatever language the host speaks.
class PlainNumbers {
 public:
  PlainNumbers() : plain_(newlocale(LC_ALL_MASK, "C", nullptr)), before_(uselocale(plain_)) {}
  PlainNumbers(const PlainNumbers&) = delete;
  PlainNumbers& operator=(const PlainNumbers&) = delete;
  ~PlainNumbers() {
    uselocale(before_);
    if (plain_) freelocale(plain_);
  }

 private:
  locale_t plain_;
  locale_t before_;
};

bool is_switched_off() {
  std::array<char, 129> text = {};
  const ssize_t count = vexa::read_start("/vexanv/data/fwawatch_option", std::span(text).first<128>());
  // No number counts as 0: an option file that is not understood silences the log.
  return count > 0 && std::strtol(text.data(), nullptr, 10) == 0;
}

std::optional<double> read_uptime() {
  std::array<char, 128> text = {};
  if (vexa::read_start("/proc/uptime", std::span(text).first<127>()) < 0) return std::nullopt;
  const PlainNumbers plain;
  char* end = nullptr;
  const double seconds = std::strtod(text.data(), &end);
  return end == text.data() ? std::nullopt : std::optional(seconds);
}

bool is_full(const char* path) {
  struct stat file = {};
  return stat(path, &file) == 0 && file.st_size > kLimit;
}

void empty(const char* path) {
  const vexa::Descriptor file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!file) std::printf("trunk %s file failed!!!\n", path);
}

const char* choose_file() {
  if (!is_full(kFileA)) return kFileA;
  if (!is_full(kFileB)) return kFileB;
  // The turn is over even when the file could not be emptied: it is used anyway, and the other
  // one gets its chance next time.
  const bool use_b = g_empty_b.load(std::memory_order_relaxed);
  const char* const chosen = use_b ? kFileB : kFileA;
  empty(chosen);
  g_empty_b.store(!use_b, std::memory_order_relaxed);
  return chosen;
}

}  // namespace

int32_t oem_watch(const char* where, int32_t line, const char* fmt, ...) {
  if (!fmt || is_switched_off()) return 0;
  const std::optional<double> uptime = read_uptime();
  if (!uptime) return 0;
  const vexa::File file(std::fopen(choose_file(), "ae"));
  if (!file) return 0;
  {
    const PlainNumbers plain;
    std::fprintf(file.get(), "[%.2f] ", *uptime);
  }
  std::fprintf(file.get(), "%s:%d ", where ? where : "(null)", line);
  std::va_list values;
  va_start(values, fmt);
  std::vfprintf(file.get(), fmt, values);
  va_end(values);
  std::fputc('\n', file.get());
  return 0;
}
