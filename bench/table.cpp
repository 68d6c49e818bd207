// SPDX-License-Identifier: MIT
#include "table.h"

#include <algorithm>

namespace bench {
namespace {

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::string time_text(double nanoseconds) {
  char text[32];
  if (nanoseconds < 1e3) {
    std::snprintf(text, sizeof text, "%.1f ns", nanoseconds);
  } else if (nanoseconds < 1e6) {
    std::snprintf(text, sizeof text, "%.1f us", nanoseconds / 1e3);
  } else {
    std::snprintf(text, sizeof text, "%.2f ms", nanoseconds / 1e6);
  }
  return text;
}

// The options that google's library appends to a name are of no interest here.
std::string plain(const std::string& name) {
  for (const char* option : {"/iterations:", "/repeats:", "/manual_time", "/real_time", "/min_time:"}) {
    const auto at = name.find(option);
    if (at != std::string::npos) return plain(name.substr(0, at));
  }
  return name;
}

}  // namespace

bool Table::ReportContext(const Context&) { return true; }

void Table::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration) continue;
    const std::string name = plain(run.benchmark_name());
    if (run.error_occurred) {
      std::fprintf(out_, "%s: %s\n", name.c_str(), run.error_message.c_str());
      failed_ = true;
      continue;
    }
    if (!samples_.contains(name)) order_.push_back(name);
    Samples& samples = samples_[name];
    samples.nanoseconds.push_back(run.real_accumulated_time / static_cast<double>(run.iterations) * 1e9);
    for (const auto& [counter, value] : run.counters) samples.counters[counter] = value;
  }
}

void Table::print_row(const std::string& name) {
  const Samples& own = samples_[name];
  const double time = median(own.nanoseconds);
  const auto floor = samples_.find(kFloor + name);
  const auto calls = [](const Samples& samples, const char* counter) {
    const auto found = samples.counters.find(counter);
    return found == samples.counters.end() ? 0.0 : found->second;
  };
  std::fprintf(out_, "| %-38s | %9s ", name.c_str(), time_text(time).c_str());
  if (floor == samples_.end()) {
    std::fprintf(out_, "| %9s | %5s ", "", "");
  } else {
    const double least = median(floor->second.nanoseconds);
    std::fprintf(out_, "| %9s | %5.2f ", time_text(least).c_str(), time / least);
  }
  const double floor_syncs = floor == samples_.end() ? 0 : calls(floor->second, "syncs");
  std::fprintf(out_, "| %5.0f / %-5.0f | %11.0f | %5.0f |\n", calls(own, "syncs"), floor_syncs,
               calls(own, "allocations"), calls(own, "locks"));
}

void Table::Finalize() {
  std::fprintf(out_, "| %-38s | %9s | %9s | %5s | syncs / floor | allocations | locks |\n", "", "library",
               "floor", "ratio");
  std::fprintf(out_, "|%s|----------:|----------:|------:|--------------:|------------:|------:|\n",
               std::string(40, '-').c_str());
  std::ranges::sort(order_);
  for (const std::string& name : order_) {
    if (!name.starts_with(kFloor)) print_row(name);
  }
  std::fflush(out_);
}

}  // namespace bench
