// SPDX-License-Identifier: MIT
// Commands that run without a shell, and that cannot hang their caller.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "exec_allow_list.h"
#include "exec_child.h"
#include "exec_watch.h"
#include "log/call_site.h"
#include "vexadm/process.h"
#include "vexadm/strings.h"

namespace {

using vexa::HeapText;
using vexa::kExecName;
using vexa::PipeEnds;

constexpr std::size_t kCommandSize = 512;
constexpr std::size_t kSpare = 256;

// A copy to be cut into words. Null when memory is short.
HeapText copy_of(const char* command) {
  const std::size_t size = std::strlen(command) + kSpare;
  HeapText copy = HeapText::zeroed(size);
  if (copy) vexa_strlcpy(copy.get(), command, static_cast<uint32_t>(size));
  return copy;
}

// Close-on-exec, so that commands of other threads do not keep it open; the child takes the mark off
// the end that its own program has to inherit.
bool make_pipe(PipeEnds& ends) {
  const int made = pipe2(ends.data(), O_CLOEXEC);
  VEXA_LOG(vexa::log::kDebug, kExecName, "ret=%d\n", made);
  return made == 0;
}

// 0 when the child exited with 0, else -1.
int32_t wait_for(pid_t child) {
  int status = 0;
  pid_t ended = -1;
  do {
    ended = waitpid(child, &status, 0);
  } while (ended == -1 && errno == EINTR);  // else the host would be left with a zombie
  if (ended == child && (status & 0x7F) == 0) {
    const int code = (status >> 8) & 0xFF;
    VEXA_LOG(vexa::log::kInfo, kExecName, "[cpid:%d] Process exited normally with rc=%d\n", child, code);
    return code == 0 ? 0 : -1;
  }
  VEXA_LOG(vexa::log::kInfo, kExecName, "(): [cpid:%d] wait_pid = %d\n", child, ended == child ? 1 : 0);
  return -1;
}

int32_t execute(const char* command, const char* program, vexa::CollectedOutput collected, bool verbose) {
  const HeapText words = copy_of(command);
  if (!words) return -1;
  if (verbose) VEXA_LOG(vexa::log::kInfo, kExecName, "(): Executing command \"%s\"\n", words.get());
  const vexa::ArgumentVector arguments(words.get(), program);

  // Owned once there are both: the first one stays open when the second cannot be had. Hosts in the
  // field are tuned to that.
  PipeEnds liveness = {-1, -1};
  PipeEnds output = {-1, -1};
  if (!make_pipe(liveness) || !make_pipe(output)) return -1;
  vexa::ChildPipes pipes = {vexa::Descriptor(liveness[0]), vexa::Descriptor(output[0])};
  vexa::Descriptor alive(liveness[1]);
  vexa::Descriptor out(output[1]);

  const pid_t child = vexa::start_child(arguments, liveness, output);
  if (child < 0) return -1;
  VEXA_LOG(vexa::log::kInfo, kExecName, "[cpid:%d] Spawned child PID(%d) command:\"%s\"\n", child, child,
           command);
  alive.close();
  out.close();
  // A child that was killed is left to the host, which may want to know how it ended.
  return vexa::watch_child(child, pipes, collected) ? wait_for(child) : -1;
}

}  // namespace

int32_t vexa_ds_system_call3(const char* command, uint32_t, char* result, uint32_t result_len,
                             uint8_t verbose) {
  if (!command) return -1;
  std::array<char, kCommandSize> copy;
  const int length = std::snprintf(copy.data(), copy.size(), "%s", command);
  if (length < 0 || static_cast<std::size_t>(length) >= copy.size()) {
    VEXA_LOG(vexa::log::kError, "vexa_ds_system_call3",
             "unable to re-direct stderr: command string too long.Command string was: %s\n", command);
    return -1;
  }
  const HeapText tokens = copy_of(copy.data());
  if (!tokens) return -1;
  char* rest = nullptr;
  const char* const word = strtok_r(tokens.get(), " ", &rest);
  const char* const program = word ? vexa::allowed_program(word) : nullptr;
  if (!program) return -1;
  return execute(copy.data(), program, vexa::CollectedOutput(result, result_len), verbose != 0);
}
