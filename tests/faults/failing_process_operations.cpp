// SPDX-License-Identifier: MIT
// Command lines that the shell runs.
#include <vexadm/vexadm.h>

#include <cstring>

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

}  // namespace

std::vector<Operation> process_operations() { return shell_operations(); }

}  // namespace vexa_test
