// SPDX-License-Identifier: MIT
// A program without a shell, beside posix_spawn() with the same reading.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <array>
#include <cstdlib>
#include <string>

#include "call_count.h"

namespace bench {
namespace {

char g_output[8192];

const std::string& command_of(std::size_t bytes) {
  static const std::string small = "echo " + std::string(19, 'x');
  static const std::string large = "/usr/bin/head -c 4096 /dev/zero";
  return bytes > 20 ? large : small;
}

template <std::size_t Bytes>
void run_command(benchmark::State& state) {
  const std::string& command = command_of(Bytes);
  const CountCalls calls(state);
  for ([[maybe_unused]] auto round : state) {
    if (vexa_ds_system_call3(command.c_str(), 0, g_output, sizeof g_output, 0) != 0)
      state.SkipWithError("the command failed");
  }
}
BENCHMARK(run_command<20>)->Name("vexa_ds_system_call3, 20 bytes");
BENCHMARK(run_command<4096>)->Name("vexa_ds_system_call3, 4096 bytes");

// One byte for each read(), one select() for each round, as the silence of a child is measured.
std::size_t read_both(int alive, int output) {
  std::size_t count = 0;
  while (alive >= 0 || output >= 0) {
    fd_set ready;
    FD_ZERO(&ready);
    for (const int fd : {alive, output}) {
      if (fd >= 0) FD_SET(fd, &ready);
    }
    timeval silence = {2, 0};
    if (select(1024, &ready, nullptr, nullptr, &silence) <= 0) std::abort();
    for (int* fd : {&alive, &output}) {
      char byte = 0;
      if (*fd < 0 || !FD_ISSET(*fd, &ready)) continue;
      if (read(*fd, &byte, 1) == 1) {
        g_output[count] = byte;
        if (count + 1 < sizeof g_output) ++count;
      } else {
        close(*fd);
        *fd = -1;
      }
    }
  }
  return count;
}

pid_t spawn(char* const* words, const std::array<int, 2>& alive, const std::array<int, 2>& output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDERR_FILENO);
  posix_spawn_file_actions_adddup2(&actions, alive[1], alive[1]);  // takes the close-on-exec mark off
  pid_t child = -1;
  if (posix_spawn(&child, words[0], &actions, nullptr, words, environ) != 0) std::abort();
  posix_spawn_file_actions_destroy(&actions);
  return child;
}

pid_t fork_directly(char* const* words, const std::array<int, 2>& alive, const std::array<int, 2>& output) {
  const pid_t child = fork();
  if (child != 0) return child;
  dup2(output[1], STDOUT_FILENO);
  dup2(output[1], STDERR_FILENO);
  fcntl(alive[1], F_SETFD, 0);
  execv(words[0], words);
  _exit(255);
}

template <auto Start, std::size_t Bytes>
void least(benchmark::State& state) {
  std::string echo = "/bin/echo";
  std::string head = "/usr/bin/head";
  std::array<std::string, 3> rest = {"-c", "4096", "/dev/zero"};
  std::string text(19, 'x');
  const std::array<char*, 3> small = {echo.data(), text.data(), nullptr};
  const std::array<char*, 5> large = {head.data(), rest[0].data(), rest[1].data(), rest[2].data(), nullptr};
  char* const* const words = Bytes > 20 ? large.data() : small.data();
  for ([[maybe_unused]] auto round : state) {
    std::array<int, 2> alive;
    std::array<int, 2> output;
    if (pipe2(alive.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) std::abort();
    const pid_t child = Start(words, alive, output);
    close(alive[1]);
    close(output[1]);
    const std::size_t count = read_both(alive[0], output[0]);
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0 || count != Bytes)
      state.SkipWithError("the command failed");
  }
}
BENCHMARK(least<spawn, 20>)->Name("floor: vexa_ds_system_call3, 20 bytes");
BENCHMARK(least<spawn, 4096>)->Name("floor: vexa_ds_system_call3, 4096 bytes");

// What fork() itself costs over posix_spawn(), in this process.
BENCHMARK(least<fork_directly, 20>)->Name("fork and exec by hand, 20 bytes");
BENCHMARK(least<fork_directly, 4096>)->Name("fork and exec by hand, 4096 bytes");
BENCHMARK(least<spawn, 20>)->Name("floor: fork and exec by hand, 20 bytes");
BENCHMARK(least<spawn, 4096>)->Name("floor: fork and exec by hand, 4096 bytes");

}  // namespace
}  // namespace bench
