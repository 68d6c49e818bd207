// SPDX-License-Identifier: MIT
#include "faults/tracer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/ptrace.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "faults/failing_calls.h"

namespace vexa_test {
namespace {

constexpr int kPtraceRefused = 77;
constexpr int kFilterRefused = 78;

struct Call {
  int number;
  const char* name;
  bool changes;  // what a command does to files between two calls of the process counts as well
};

constexpr Call kCalls[] = {
#ifdef SYS_open
    {SYS_open, "open", true},
#endif
    {SYS_openat, "openat", true},
    {SYS_read, "read", false},
    {SYS_pread64, "pread64", false},
    {SYS_write, "write", true},
    {SYS_pwrite64, "pwrite64", true},
    {SYS_writev, "writev", true},
    {SYS_copy_file_range, "copy_file_range", true},
    {SYS_sendfile, "sendfile", true},
#ifdef SYS_sendfile64
    {SYS_sendfile64, "sendfile64", true},
#endif
    {SYS_ftruncate, "ftruncate", true},
    {SYS_truncate, "truncate", true},
#ifdef SYS_ftruncate64
    {SYS_ftruncate64, "ftruncate64", true},
    {SYS_truncate64, "truncate64", true},
#endif
    {SYS_fallocate, "fallocate", true},
    {SYS_fsync, "fsync", false},
    {SYS_fdatasync, "fdatasync", false},
#ifdef SYS_sync_file_range
    {SYS_sync_file_range, "sync_file_range", false},
#endif
    {SYS_syncfs, "syncfs", false},
    {SYS_fcntl, "fcntl", false},
#ifdef SYS_fcntl64
    {SYS_fcntl64, "fcntl64", false},
#endif
    {SYS_close, "close", false},
    {SYS_lseek, "lseek", false},
#ifdef SYS__llseek
    {SYS__llseek, "_llseek", false},
#endif
#ifdef SYS_rename
    {SYS_rename, "rename", true},
#endif
#ifdef SYS_renameat
    {SYS_renameat, "renameat", true},
#endif
    {SYS_renameat2, "renameat2", true},
#ifdef SYS_link
    {SYS_link, "link", true},
#endif
    {SYS_linkat, "linkat", true},
#ifdef SYS_unlink
    {SYS_unlink, "unlink", true},
#endif
    {SYS_unlinkat, "unlinkat", true},
#ifdef SYS_mkdir
    {SYS_mkdir, "mkdir", true},
#endif
    {SYS_mkdirat, "mkdirat", true},
#ifdef SYS_chmod
    {SYS_chmod, "chmod", true},
#endif
    {SYS_fchmod, "fchmod", true},
    {SYS_fchmodat, "fchmodat", true},
    {SYS_fchown, "fchown", true},
#ifdef SYS_fchown32
    {SYS_fchown32, "fchown32", true},
#endif
    {SYS_fchownat, "fchownat", true},
};

const Call* find_call(std::uint64_t number) {
  const auto* found = std::find_if(std::begin(kCalls), std::end(kCalls),
                                   [&](const Call& call) { return std::uint64_t(call.number) == number; });
  return found == std::end(kCalls) ? nullptr : found;
}

// glibc's ptrace() is typed differently in each C library.
template <typename Data>
long trace(int request, pid_t pid, std::uintptr_t address, Data data) {
  return syscall(SYS_ptrace, request, pid, address, data);
}

// Stops at the listed calls only: stopping at every call, twice, would make the rounds
// several times as long.
bool install_filter() {
  std::vector<sock_filter> program = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const Call& call : kCalls) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call.number), 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0) == 0;
}

class Tracer {
 public:
  Tracer(pid_t process, int at_call, Kill kill) : process_(process), at_call_(at_call), kill_(kill) {}

  TracedRun run() {
    // Until no tracee is left: the commands of a killed process are waited for as well.
    for (;;) {
      int status = 0;
      const pid_t pid = waitpid(-1, &status, __WALL);
      if (pid < 0 && errno == EINTR) continue;
      if (pid < 0) return run_;
      if (WIFSTOPPED(status)) {
        stopped(pid, status);
      } else if (pid == process_) {
        ended(status);
      }
    }
  }

 private:
  void ended(int status) {
    if (!WIFEXITED(status)) {
      if (run_.killed_at.empty()) run_.refused = "ended by signal " + std::to_string(WTERMSIG(status));
      return;
    }
    run_.exit_code = WEXITSTATUS(status);
    if (run_.exit_code == kPtraceRefused) run_.refused = "PTRACE_TRACEME is refused";
    if (run_.exit_code == kFilterRefused) run_.refused = "a seccomp filter is refused";
    run_.completed = run_.refused.empty();
  }

  void stopped(pid_t pid, int status) {
    if (pid == process_ && !marked_) {
      marked_ = true;
      trace(PTRACE_SETOPTIONS, pid, 0,
            PTRACE_O_EXITKILL | PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC);
      trace(PTRACE_CONT, pid, 0, 0L);
      return;
    }
    const int event = status >> 16;
    if (event == PTRACE_EVENT_SECCOMP && counts(pid) && ++run_.calls == at_call_) {
      kill_now();
      return;
    }
    const int signal = WSTOPSIG(status);
    const bool news = event != 0 || signal == SIGSTOP || signal == SIGTRAP;
    trace(PTRACE_CONT, pid, 0, news ? 0L : static_cast<long>(signal));
    if (pid != process_ && std::find(commands_.begin(), commands_.end(), pid) == commands_.end()) {
      commands_.push_back(pid);
      // Attached after the kill of the tree, started just before it.
      if (!run_.killed_at.empty() && kill_ == Kill::kTree) ::kill(pid, SIGKILL);
    }
  }

  bool counts(pid_t pid) {
    if (!run_.killed_at.empty()) return false;
    ptrace_syscall_info info = {};
    trace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
    const Call* call = find_call(info.seccomp.nr);
    last_ = call == nullptr ? "?" : call->name;
    if (pid == process_) return true;
    if (kill_ == Kill::kProcess || call == nullptr || !call->changes) return false;
    // Commands open dozens of files to start with; only what they make is of interest.
    const bool opens = call->number == SYS_openat;
    return !opens || (info.seccomp.args[2] & (O_CREAT | O_TRUNC)) != 0;
  }

  void kill_now() {
    run_.killed_at = last_;
    ::kill(process_, SIGKILL);
    if (kill_ == Kill::kProcess) return;
    for (const pid_t command : commands_) ::kill(command, SIGKILL);
  }

  const pid_t process_;
  const int at_call_;
  const Kill kill_;
  bool marked_ = false;
  std::string last_;
  std::vector<pid_t> commands_;
  TracedRun run_;
};

// What a run that kills itself leaves behind, in memory that it shares with its parent.
struct Intercepted {
  int calls;
  int at_call;
  Kill kill;
  bool killed;
  std::array<char, 24> name;
};

Intercepted* g_intercepted = nullptr;  // null while ptrace is at work

void count_intercepted(const char* name) {
  Intercepted& run = *g_intercepted;
  if (++run.calls != run.at_call) return;
  run.killed = true;
  std::snprintf(run.name.data(), run.name.size(), "%s", name);
  ::kill(run.kill == Kill::kTree ? 0 : getpid(), SIGKILL);
}

void intercept_from_here() {
  // For as long as the process lives.
  new FailingCalls({});
  FailingCalls::watch(count_intercepted);
}

TracedRun run_intercepted(const std::function<void()>& body, int at_call, Kill kill) {
  void* const memory =
      mmap(nullptr, sizeof(Intercepted), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return {"no shared memory", false, -1, 0, ""};
  auto* const shared = static_cast<Intercepted*>(memory);
  *shared = {0, at_call, kill, false, {}};
  prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);  // commands that outlive it are waited for as well
  const pid_t child = fork();
  if (child == 0) {
    g_intercepted = shared;
    setpgid(0, 0);
    body();
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  while (waitpid(-1, nullptr, 0) > 0) {
  }
  TracedRun run;
  run.calls = shared->calls;
  run.completed = WIFEXITED(status);
  if (run.completed) run.exit_code = WEXITSTATUS(status);
  if (shared->killed) run.killed_at = shared->name.data();
  if (!run.completed && !shared->killed) run.refused = "ended by signal " + std::to_string(WTERMSIG(status));
  munmap(memory, sizeof(Intercepted));
  return run;
}

KillBy find_best_killer() {
  const char* const wish = std::getenv("VEXA_KILL_BY");
  if (wish != nullptr && std::strcmp(wish, "interception") == 0) return KillBy::kInterception;
  const std::string refused = run_traced(trace_from_here, 0, Kill::kProcess, KillBy::kPtrace).refused;
  if (refused.empty()) return KillBy::kPtrace;
  std::fprintf(stderr,
               "NOTE: %s here; processes are killed at each intercepted call of the C library instead, and "
               "not within the commands that they start\n",
               refused.c_str());
  return KillBy::kInterception;
}

}  // namespace

KillBy best_killer() {
  static const KillBy best = find_best_killer();
  return best;
}

void trace_from_here() {
  if (g_intercepted != nullptr) return intercept_from_here();
  if (trace(PTRACE_TRACEME, 0, 0, 0L) != 0) _exit(kPtraceRefused);
  raise(SIGSTOP);
  if (!install_filter()) _exit(kFilterRefused);
}

TracedRun run_traced(const std::function<void()>& body, int at_call, Kill kill, KillBy by) {
  std::fflush(nullptr);
  if (by == KillBy::kInterception) return run_intercepted(body, at_call, kill);
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  if (child < 0) return {"fork failed", false, -1, 0, ""};
  return Tracer(child, at_call, kill).run();
}

}  // namespace vexa_test
