// SPDX-License-Identifier: MIT
// Command lines that the shell runs.
#include <sys/syscall.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <cstring>

#include "faults/failing_calls.h"
#include "faults/failing_operations.h"

namespace vexa_test {
namespace {

char g_result[64];

// ---- By the shell ----

std::int64_t system_call() { return CALL(vexa_system_call)("exit 0", 6); }

std::int64_t formatted_system_call() {
  char command[32];
  return CALL(vexa_system_call_var_arg)(command, sizeof command, "exit %d", 0);
}

std::int64_t other_system_call() { return CALL(vexa_system_call_ex)("exit 0", 6); }

std::int64_t read_output() {
  const std::int32_t code = CALL(vexa_popen_call)("echo one; echo two", g_result, sizeof g_result);
  if (code != 0) return code;
  return std::strcmp(g_result, "one\ntwo\n") == 0 ? 0 : 1;
}

std::int64_t read_output_later() {
  const std::int32_t code = CALL(vexa_popen_call_ex)("echo one; echo two", g_result, sizeof g_result);
  if (code != 0) return code;
  return std::strcmp(g_result, "one\ntwo\n") == 0 ? 0 : 1;
}

// A C library whose system() starts the shell by posix_spawn() tells nothing else of one that it cannot
// start.
const std::vector<Answer> kSystemCallAnswers = {
    {0},
    {-1, "3 oem_system_call|system error!\n"},
    {127 << 8, "3 oem_system_call|run shell script fail=32512, script exit code: 127\n"}};

std::vector<Operation> shell_operations() {
  return {
      {.name = "SystemCall",
       .run = system_call,
       .answers = kSystemCallAnswers,
       .reach = Reach::kSystem,
       .below_libc = true},
      {.name = "SystemCallOfAFormat",
       .run = formatted_system_call,
       .answers = kSystemCallAnswers,
       .reach = Reach::kSystem,
       .below_libc = true},
      {.name = "SystemCallForACode",
       .run = other_system_call,
       .answers = {{0}, {-1, "3 oem_system_call_ex|system command failed, rc=-1 errno: <any>\n"}},
       .below_libc = true},
      {.name = "OutputOfACommand",
       .run = read_output,
       .answers = {{0},
                   {1},
                   {-1, "3 oem_popen_call|popen call:echo one; echo two fail[<any>]\n"},
                   {-1, "3 oem_popen_call|result_str is NULL!"}},
       .below_libc = true},
      {.name = "OutputOfACommandLater",
       .run = read_output_later,
       .answers = {{0}, {1}, {-1, "3 oem_popen_call_ex|popen call:echo one; echo two fail[<any>]\n"}},
       .below_libc = true},
      {.name = "ProcessCount",
       .run = [] { return std::int64_t{CALL(vexa_check_process_exist)("'' < /dev/null")}; },
       .answers = {{0}, {-1}},
       .below_libc = true},
      {.name = "FlashType",
       .run =
           [] {
             const std::int32_t type = CALL(get_flash_type)();
             return std::int64_t{type == 0 || type == 1 ? 0 : type};
           },
       .answers = {{0}, {4}},
       .below_libc = true},
  };
}

// ---- Without a shell ----

// What a command may leave to its host: a child that is not waited for, and the first pipe when the
// second cannot be had. The host clears it away here; below all that can be made to fail.
class LeftBehind {
 public:
  LeftBehind() : first_(static_cast<int>(syscall(SYS_dup, 0))) { syscall(SYS_close, first_); }

  // False when there is more than may be.
  bool clear() const {
    while (syscall(SYS_wait4, -1, nullptr, 0, nullptr) > 0) {
    }
    const bool second_pipe = std::strncmp(FailingCalls::first_failed(), "pipe2", 5) == 0;
    return close_if_open(first_ + 1) == close_if_open(first_) && (second_pipe || !found_);
  }

 private:
  bool close_if_open(int fd) const {
    const bool open = syscall(SYS_close, fd) == 0;
    found_ = found_ || open;
    return open;
  }

  int first_;
  mutable bool found_ = false;
};

std::int64_t run_program(const char* command, const char* expected) {
  const LeftBehind left;
  std::memset(g_result, 0, sizeof g_result);
  const std::int32_t code = CALL(vexa_ds_system_call3)(command, 0, g_result, sizeof g_result, 1);
  if (!left.clear()) return 999;
  if (code != 0) return code;
  return std::strcmp(g_result, expected) == 0 ? 0 : 1;
}

std::vector<Operation> exec_operations() {
  return {
      // 1: a read that fails is the end of the output.
      {.name = "Program",
       .run = [] { return run_program("echo one two", "one two\n"); },
       .answers = {{0}, {1}, {-1}},
       .thorough = true},
      {.name = "ProgramThatIsNotThere",
       .run = [] { return run_program("/bin/nothing_of_that_name", ""); },
       .answers = {{-1}}},
      {.name = "ProgramRefused",
       .run = [] { return run_program("cat /etc/passwd", ""); },
       .answers = {{-1}},
       .reach = Reach::kMemory},
      {.name = "ProgramTooLong",
       .run =
           [] {
             static char command[600];
             std::memset(command, 'x', sizeof command - 1);
             return run_program(command, "");
           },
       .answers = {{-1,
                    "3 oem_ds_system_call3|unable to re-direct stderr: command string too "
                    "long.Command string was: xxx<any>xxx\n"}}},
  };
}

}  // namespace

std::vector<Operation> process_operations() {
  std::vector<Operation> all = shell_operations();
  for (const Operation& operation : exec_operations()) all.push_back(operation);
  return all;
}

}  // namespace vexa_test
