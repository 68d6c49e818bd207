// SPDX-License-Identifier: MIT
// Each benchmark beside its floor, in one table. ./dev bench runs it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "start_up.h"
#include "store.h"
#include "table.h"

namespace {

// Library and floor take turns, so that a busy moment of the machine meets both.
std::vector<std::string> with_habits(int argc, char** argv) {
  std::vector<std::string> arguments = {argv[0], "--benchmark_repetitions=9", "--benchmark_min_time=0.05",
                                        "--benchmark_enable_random_interleaving=true"};
  arguments.insert(arguments.end(), argv + 1, argv + argc);  // later ones count
  return arguments;
}

}  // namespace

int main(int argc, char** argv) {
  vexa_set_log_level(4);
  const bench::WorkingDirectory directory;
  if (argc == 2 && std::string_view(argv[1]).starts_with(bench::kStartUpOption)) {
    return bench::measure_start_up(std::string_view(argv[1]).substr(bench::kStartUpOption.size()));
  }
  bench::select_store(4, 20);  // before the first registration, which looks at the files
  bench::fill_cache();
  setenv("VEXA_BENCH_SELF", std::to_string(getpid()).c_str(), 1);

  std::vector<std::string> arguments = with_habits(argc, argv);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  auto count = static_cast<int>(pointers.size());
  benchmark::Initialize(&count, pointers.data());
  if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 1;

  std::FILE* out = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10), "w");
  bench::Table table(out);
  const bool ran = benchmark::RunSpecifiedBenchmarks(&table) > 0;
  std::fclose(out);
  return ran && !table.failed() ? 0 : 1;
}
