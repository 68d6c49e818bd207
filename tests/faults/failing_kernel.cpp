// SPDX-License-Identifier: MIT
#include "faults/failing_kernel.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <vector>

namespace vexa_test {
namespace {

struct Call {
  int number;
  const char* name;
  bool interrupted_only = false;  // any other failure would leave behind what nobody could clear away
};

constexpr Call kCalls[] = {
#ifdef SYS_open
    {SYS_open, "open"},
#endif
    {SYS_openat, "openat"},
    {SYS_read, "read"},
    {SYS_pread64, "pread64"},
    {SYS_write, "write"},
    {SYS_pwrite64, "pwrite64"},
    {SYS_writev, "writev"},
    {SYS_lseek, "lseek"},
#ifdef SYS__llseek
    {SYS__llseek, "_llseek"},
#endif
    {SYS_fsync, "fsync"},
    {SYS_fdatasync, "fdatasync"},
    {SYS_syncfs, "syncfs"},
    {SYS_ftruncate, "ftruncate"},
#ifdef SYS_ftruncate64
    {SYS_ftruncate64, "ftruncate64"},
#endif
    {SYS_fcntl, "fcntl"},
#ifdef SYS_fcntl64
    {SYS_fcntl64, "fcntl64"},
#endif
    {SYS_fstat, "fstat"},
#ifdef SYS_fstat64
    {SYS_fstat64, "fstat64"},
    {SYS_fstatat64, "fstatat64"},
#endif
#ifdef SYS_newfstatat
    {SYS_newfstatat, "newfstatat"},
#endif
    {SYS_statx, "statx"},
#ifdef SYS_access
    {SYS_access, "access"},
#endif
    {SYS_faccessat, "faccessat"},
#ifdef SYS_faccessat2
    {SYS_faccessat2, "faccessat2"},
#endif
#ifdef SYS_readlink
    {SYS_readlink, "readlink"},
#endif
    {SYS_readlinkat, "readlinkat"},
#ifdef SYS_rename
    {SYS_rename, "rename"},
#endif
#ifdef SYS_renameat
    {SYS_renameat, "renameat"},
#endif
    {SYS_renameat2, "renameat2"},
#ifdef SYS_unlink
    {SYS_unlink, "unlink"},
#endif
    {SYS_unlinkat, "unlinkat"},
#ifdef SYS_mkdir
    {SYS_mkdir, "mkdir"},
#endif
    {SYS_mkdirat, "mkdirat"},
    {SYS_fchmod, "fchmod"},
    {SYS_fchown, "fchown"},
#ifdef SYS_fchown32
    {SYS_fchown32, "fchown32"},
#endif
    {SYS_pipe2, "pipe2"},
    {SYS_clone, "clone"},
#ifdef SYS_clone3
    {SYS_clone3, "clone3"},
#endif
#ifdef SYS_vfork
    {SYS_vfork, "vfork"},
#endif
    {SYS_wait4, "wait4", true},
};

struct Shared {
  volatile bool armed;
  volatile bool every_call;
  FaultPlan plan;
  std::uint64_t seen;
  std::uint64_t failed;
  char first_failed[64];
};

Shared* g_shared = nullptr;
std::array<int, 2> g_ends = {-1, -1};  // the listener's way to the parent
bool g_filtered = false;

std::vector<sock_filter> filter_of(bool every_call) {
  std::vector<sock_filter> program = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  const auto answer = [&](long number, std::uint32_t action) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, action));
  };
  answer(SYS_sendmsg, SECCOMP_RET_ALLOW);  // hands over the listener
  if (!every_call) {
    for (const Call& call : kCalls) answer(call.number, SECCOMP_RET_USER_NOTIF);
  }
  const std::uint32_t others = every_call ? SECCOMP_RET_USER_NOTIF : SECCOMP_RET_ALLOW;
  program.push_back(BPF_STMT(BPF_RET | BPF_K, others));
  return program;
}

int install_filter(bool every_call) {
  std::vector<sock_filter> program = filter_of(every_call);
  const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
  return static_cast<int>(
      syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter));
}

union Control {
  cmsghdr header;
  char bytes[CMSG_SPACE(sizeof(int))];
};

msghdr message_of(iovec& byte, Control& control) {
  msghdr message = {};
  message.msg_iov = &byte;
  message.msg_iovlen = 1;
  message.msg_control = &control;
  message.msg_controllen = sizeof control;
  return message;
}

void send_listener(int listener) {
  char byte = 'l';
  iovec data = {&byte, 1};
  Control control = {};
  const msghdr message = message_of(data, control);
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof listener);
  std::memcpy(CMSG_DATA(header), &listener, sizeof listener);
  if (syscall(SYS_sendmsg, g_ends[1], &message, 0) != 1) _exit(1);
}

// -1 when the child has ended without one.
int receive_listener() {
  char byte = 0;
  iovec data = {&byte, 1};
  Control control = {};
  msghdr message = message_of(data, control);
  if (recvmsg(g_ends[0], &message, MSG_CMSG_CLOEXEC) != 1) return -1;
  const cmsghdr* const header = CMSG_FIRSTHDR(&message);
  int listener = -1;
  if (header != nullptr) std::memcpy(&listener, CMSG_DATA(header), sizeof listener);
  return listener;
}

const char* name_of(int number) {
  const auto* found = std::find_if(std::begin(kCalls), std::end(kCalls),
                                   [&](const Call& call) { return call.number == number; });
  return found != std::end(kCalls) ? found->name : "another call";
}

bool bears(int number, int error) {
  if (error == kShortCount) return false;  // nobody would have done the half
  const auto* found = std::find_if(std::begin(kCalls), std::end(kCalls),
                                   [&](const Call& call) { return call.number == number; });
  return found == std::end(kCalls) || !found->interrupted_only || error == EINTR;
}

// The errno value to answer with, or 0.
int due(int number) {
  Shared& shared = *g_shared;
  if (!shared.armed) return 0;
  const FaultPlan& plan = shared.plan;
  const char* const name = name_of(number);
  if (plan.call[0] != '\0' && std::strcmp(plan.call, name) != 0) return 0;
  const std::uint64_t n = ++shared.seen;
  if (shared.every_call && shared.first_failed[0] == '\0') {
    std::snprintf(shared.first_failed, sizeof shared.first_failed, "call %d (%s)", number, name);
  }
  if (plan.from == 0 || n < plan.from || n - plan.from >= plan.count || !bears(number, plan.error)) return 0;
  if (shared.failed++ == 0) {
    std::snprintf(shared.first_failed, sizeof shared.first_failed, "%s below the C library", name);
  }
  return plan.error;
}

void answer(int listener, pid_t child) {
  seccomp_notif asked = {};
  if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) return;
  const int error = static_cast<pid_t>(asked.pid) == child ? due(asked.data.nr) : 0;
  seccomp_notif_resp given = {};
  given.id = asked.id;
  given.error = -error;
  given.flags = error == 0 ? std::uint32_t{SECCOMP_USER_NOTIF_FLAG_CONTINUE} : 0U;
  ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &given);
}

}  // namespace

FailingKernel::FailingKernel(const FaultPlan& plan) : FailingKernel(plan, false) {}

FailingKernel::FailingKernel(const FaultPlan& plan, bool every_call) {
  g_shared->seen = g_shared->failed = 0;
  g_shared->first_failed[0] = '\0';
  g_shared->plan = plan;
  g_shared->every_call = every_call;
  if (!g_filtered) {
    const int listener = install_filter(every_call);
    if (listener < 0) _exit(1);
    send_listener(listener);
    syscall(SYS_close, listener);
    g_filtered = true;
  }
  g_shared->armed = true;
}

FailingKernel::~FailingKernel() { g_shared->armed = false; }

std::uint64_t FailingKernel::seen() { return g_shared->seen; }
std::uint64_t FailingKernel::failed() { return g_shared->failed; }
const char* FailingKernel::first_failed() { return g_shared->first_failed; }

void FailingKernel::before_fork() {
  if (g_shared == nullptr) {
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    g_shared = static_cast<Shared*>(memory);
  }
  g_shared->armed = false;
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_ends.data()) != 0) std::abort();
}

void FailingKernel::supervise(pid_t child) {
  close(g_ends[1]);
  const int listener = receive_listener();
  close(g_ends[0]);
  if (listener < 0) return;
  // An older kernel keeps the listener open until the child is waited for.
  const int process = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
  std::array<pollfd, 2> events = {pollfd{listener, POLLIN, 0}, pollfd{process, POLLIN, 0}};
  while (poll(events.data(), events.size(), -1) > 0 || errno == EINTR) {
    if ((events[0].revents & POLLIN) != 0) {
      answer(listener, child);
    } else if (events[0].revents != 0 || events[1].revents != 0) {
      break;
    }
  }
  close(process);
  close(listener);
}

std::string FailingKernel::refused() {
  before_fork();
  const pid_t child = fork();
  if (child == 0) {
    const int listener = install_filter(false);
    _exit(listener >= 0 ? 0 : errno);
  }
  for (const int end : g_ends) close(end);
  int status = 0;
  waitpid(child, &status, 0);
  if (status == 0) return {};
  return std::string("no seccomp listener: ") + std::strerror(WEXITSTATUS(status));
}

}  // namespace vexa_test
