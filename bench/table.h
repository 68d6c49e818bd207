// SPDX-License-Identifier: MIT
// Puts each benchmark beside its floor.
#ifndef VEXADM_BENCH_TABLE_H
#define VEXADM_BENCH_TABLE_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace bench {

// A benchmark "x" and its floor "floor: x" are one row. With several repetitions each number is
// the median of them.
class Table : public benchmark::BenchmarkReporter {
 public:
  // The table goes to a stream of its own: one of the benchmarks takes standard output.
  explicit Table(std::FILE* out) : out_(out) {}

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  // True when a benchmark ended with an error.
  bool failed() const { return failed_; }

 private:
  struct Samples {
    std::vector<double> nanoseconds;
    std::vector<double> floor_nanoseconds;
    std::map<std::string, double> counters;
  };

  void print_row(const std::string& name);

  std::FILE* out_;
  std::vector<std::string> order_;
  std::map<std::string, Samples> samples_;
  bool failed_ = false;
};

inline constexpr char kFloor[] = "floor: ";

// Counters of a benchmark that measures its floor itself; nanoseconds.
inline constexpr char kOwnTime[] = "own time";
inline constexpr char kFloorTime[] = "floor time";

double median(std::vector<double> values);

}  // namespace bench

#endif
