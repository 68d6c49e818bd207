// SPDX-License-Identifier: MIT
// Command lines run by the shell.
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <span>
#include <string_view>

#include "log/call_site.h"
#include "owners.h"
#include "shell_stream.h"
#include "stream.h"
#include "vexadm/process.h"

namespace {

using vexa::HeapText;
using vexa::kNotStarted;
using vexa::kToRead;
using vexa::kToWrite;
using vexa::Shell;

constexpr const char* kInvalid = "parameter invaild!";

int exit_code(int status) { return (status >> 8) & 0xFF; }

// Any other end than by a signal; a status of -1 is none either.
bool exited(int status) { return (status & 0x7F) == 0; }

void log_not_read(const char* function, const char* command, const char* reason) {
  VEXA_LOG(vexa::log::kError, function, "popen call:%s fail[%s]\n", command ? command : "(null)", reason);
}

// The pieces of an output that fit, one behind the other.
class Collected {
 public:
  Collected(char* result, uint32_t size) : result_(result), size_(size) { std::memset(result, 0, size); }

  uint32_t length() const { return length_; }
  bool fits(std::string_view piece) const { return length_ + piece.size() < size_; }
  void append(std::string_view piece) {
    if (piece.empty()) return;
    std::memcpy(result_ + length_, piece.data(), piece.size());
    length_ += static_cast<uint32_t>(piece.size());
    result_[length_] = '\0';
  }

 private:
  char* result_;
  uint32_t size_;
  uint32_t length_ = 0;
};

int64_t monotonic_ns() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

// The shell's time to produce its output. Signals do not shorten it; nor do they lengthen it, as they
// would if each one began the rest of the pause anew.
void sleep_one_second() {
  const int64_t end = monotonic_ns() + 1000000000;
  for (int64_t left = 1000000000; left > 0; left = end - monotonic_ns()) {
    const timespec pause = {static_cast<time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
    nanosleep(&pause, nullptr);
  }
}

}  // namespace

int32_t vexa_system_call(const char* cmd, uint32_t cmd_len) {
  constexpr const char* kName = "vexa_system_call";
  if (cmd && std::strlen(cmd) != cmd_len) {
    VEXA_LOG(vexa::log::kError, kName, "System call length mismatch: %d != %d\n", static_cast<int>(cmd_len),
             static_cast<int>(std::strlen(cmd)));
    return -1;
  }
  VEXA_LOG(vexa::log::kDebug, kName, "System call: %s\n", cmd ? cmd : "(null)");
  // Without a command system() only says whether there is a shell.
  const int status = cmd ? std::system(cmd) : -1;
  if (status == -1) {
    VEXA_LOG(vexa::log::kError, kName, "system error!\n");
    return -1;
  }
  const int code = exit_code(status);
  if (!exited(status)) {
    VEXA_LOG(vexa::log::kError, kName, "result=%d, exit status = [%d]\n", status, code);
  } else if (code != 0) {
    VEXA_LOG(vexa::log::kError, kName, "run shell script fail=%d, script exit code: %d\n", status, code);
  } else {
    VEXA_LOG(vexa::log::kDebug, kName, "run shell script successfully result=%d.\n", status);
  }
  return status;
}

int32_t vexa_system_call_var_arg(char* buf, uint32_t buf_size, const char* fmt, ...) {
  int length = -1;
  if (buf && buf_size > 0 && fmt) {
    std::va_list values;
    va_start(values, fmt);
    length = std::vsnprintf(buf, buf_size, fmt, values);
    va_end(values);
  }
  if (length < 0) {
    VEXA_LOG(vexa::log::kError, "vexa_system_call_var_arg", "system error!\n");
    return -1;
  }
  return vexa_system_call(buf, static_cast<uint32_t>(std::strlen(buf)));
}

int32_t vexa_system_call_ex(const char* cmd, uint32_t cmd_len) {
  constexpr const char* kName = "vexa_system_call_ex";
  if (cmd && std::strlen(cmd) != cmd_len) {
    VEXA_LOG(vexa::log::kError, kName, "system call length mismatch: %d != %d\n", static_cast<int>(cmd_len),
             static_cast<int>(std::strlen(cmd)));
    return -1;
  }
  VEXA_LOG(vexa::log::kDebug, kName, "system call: %s\n", cmd ? cmd : "(null)");
  int result = -1;
  Shell shell(cmd ? cmd : "", cmd ? kToWrite : kNotStarted);
  if (!shell) {
    VEXA_LOG(vexa::log::kError, kName, "system command failed\n");
  } else {
    const int status = shell.wait();
    result = exited(status) ? exit_code(status) : status;
    if (result == 0) return 0;
  }
  VEXA_LOG(vexa::log::kError, kName, "system command failed, rc=%d errno: %d\n", result, errno);
  return result;
}

int32_t vexa_popen_call(const char* cmd, char* result, uint32_t result_size) {
  constexpr const char* kName = "vexa_popen_call";
  if (!cmd) {
    log_not_read(kName, cmd, kInvalid);
    return -1;
  }
  const Shell shell(cmd, kToRead);
  if (!shell) {
    log_not_read(kName, cmd, std::strerror(errno));
    return -1;
  }
  HeapText line;
  if (result) {
    line = HeapText::zeroed(result_size);
    if (!line) {
      VEXA_LOG(vexa::log::kError, kName, "result_str is NULL!");
      return -1;
    }
    Collected collected(result, result_size);
    // One less than the buffer holds, so that a piece and its line feed are not torn at the very end.
    const std::span<char> piece(line.get(), result_size > 0 ? result_size - 1 : 0);
    while (vexa::read_line(shell.stream(), piece)) {
      if (!collected.fits(line.get())) {
        VEXA_LOG(vexa::log::kError, kName, "result_buf Exceeded max len.\n");
        break;
      }
      collected.append(line.get());
      VEXA_LOG(vexa::log::kDebug, kName, "Line string:%s", line.get());
    }
  }
  VEXA_LOG(vexa::log::kDebug, kName, "popen call: %s success. result string:%s\n", cmd,
           !result           ? "(null)"
           : result_size > 0 ? result
                             : "");
  return 0;
}

int32_t vexa_popen_call_ex(const char* cmd, char* result, uint32_t result_size) {
  constexpr const char* kName = "vexa_popen_call_ex";
  if (!cmd || !result) {
    log_not_read(kName, cmd, kInvalid);
    return -1;
  }
  const Shell shell(cmd, kToRead);
  if (!shell) {
    log_not_read(kName, cmd, std::strerror(errno));
    return -1;
  }
  sleep_one_second();
  Collected collected(result, result_size);
  std::array<char, 511> line = {};
  while (vexa::read_line(shell.stream(), line)) {
    VEXA_LOG(vexa::log::kDebug, kName, "%s\n", line.data());
    // The last byte but the terminator's stays unused: hosts compare lengths with this limit.
    const uint32_t most = result_size > 2 ? result_size - 2 : 0;
    collected.append(std::string_view(line.data()).substr(0, most - collected.length()));
    if (result_size > 0 && collected.length() >= result_size - 1) {
      VEXA_LOG(vexa::log::kDebug, kName, "len=%d,%d\n", static_cast<int>(collected.length()),
               static_cast<int>(result_size - 1));
      break;
    }
  }
  return 0;
}

int32_t vexa_check_process_exist(const char* name) {
  std::array<char, 128> command = {};
  if (!name) return -1;
  const int length = std::snprintf(command.data(), command.size(), "ps | grep -v grep | grep -c %s", name);
  if (length < 0 || static_cast<std::size_t>(length) >= command.size()) return -1;
  const Shell shell(command.data(), kToRead);
  if (!shell) return 0;
  std::array<char, 17> output = {};  // 16 and a terminator
  const std::size_t count = vexa::read_bytes(shell.stream(), std::span(output).first<16>());
  return count > 0 ? static_cast<int32_t>(std::strtol(output.data(), nullptr, 10)) : -1;
}

int32_t get_flash_type() {
  const Shell shell("cat /proc/partitions 2>/dev/null | grep mtd", kToRead);
  if (!shell) return 4;
  std::array<char, 32> output = {};
  return vexa::read_bytes(shell.stream(), output) > 0 ? 1 : 0;
}
