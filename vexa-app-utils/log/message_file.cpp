// SPDX-License-Identifier: MIT
// Lines appended to any file by the shell.
#include <sys/time.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>

#include "log/call_site.h"
#include "owners.h"
#include "vexadm/log.h"
#include "vexadm/process.h"
#include "vexadm/watch_log.h"

namespace {

constexpr std::size_t kLineSize = 8440;
constexpr std::size_t kCommandSize = 12660;

// Local time: who reads these files compares them with the clock on the wall.
class Stamp {
 public:
  Stamp() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    std::tm local = {};
    localtime_r(&now.tv_sec, &local);
    std::snprintf(text_.data(), text_.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(now.tv_usec / 1000));
  }
  const char* text() const { return text_.data(); }

 private:
  std::array<char, 64> text_ = {};
};

// The length is that of the whole command: one that was cut, and would write to a file of another
// name or leave a quote open, is refused.
int32_t run(const char* command, int length) {
  return vexa_system_call(command, static_cast<uint32_t>(length));
}

}  // namespace

int32_t vexa_write_msg2file(const char* path, const char* msg) {
  if (!path || !msg) return -1;
  const Stamp stamp;
  std::array<char, 2048> command;
  return run(command.data(),
             std::snprintf(command.data(), command.size(), "echo \"[%s]%s\" >> %s", stamp.text(), msg, path));
}

int32_t vexa_write_msg2file_ex(char* buf, const char* path, const char* func, const char* fmt, ...) {
  if (!buf || !path || !fmt) return -1;
  const Stamp stamp;
  std::va_list values;
  va_start(values, fmt);
  std::vsnprintf(buf, vexa::log::kMessageSize, fmt, values);
  va_end(values);

  const vexa::HeapText line = vexa::HeapText::zeroed(kLineSize);
  if (!line) return 0;
  const vexa::HeapText command = vexa::HeapText::zeroed(kCommandSize);
  if (!command) return 0;
  // Without a name the line is empty, and still written: that something was to be said is worth a line.
  if (const vexa::HeapText name(rewrite_func_name(func)); name) {
    std::snprintf(line.get(), kLineSize, "[%s]%s: %s", stamp.text(), name.get(), buf);
  }
  return run(command.get(),
             std::snprintf(command.get(), kCommandSize, "echo \"%s\" >> %s", line.get(), path));
}
