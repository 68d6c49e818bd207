// SPDX-License-Identifier: MIT
#include "table.h"

#include <algorithm>
#include <cmath>

namespace bench {
namespace {

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

double nanoseconds_of(const benchmark::BenchmarkReporter::Run& run) {
  return run.real_accumulated_time / static_cast<double>(run.iterations) * 1e9;
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

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

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
    if (std::ranges::find(order_, name) == order_.end()) order_.push_back(name);
    Samples& samples = samples_[name];
    const auto counter = [&run](const char* of) { return run.counters.find(of); };
    const bool paired = counter(kOwnTime) != run.counters.end();
    samples.nanoseconds.push_back(paired ? counter(kOwnTime)->second.value : nanoseconds_of(run));
    if (paired) samples.floor_nanoseconds.push_back(counter(kFloorTime)->second.value);
    for (const auto& [of, value] : run.counters) samples.counters[of] = value;
    // A floor that is a benchmark of its own belongs to the row of the other.
    if (name.starts_with(kFloor)) {
      samples_[name.substr(sizeof kFloor - 1)].floor_nanoseconds.push_back(nanoseconds_of(run));
    }
  }
}

void Table::print_row(const std::string& name) {
  Samples& samples = samples_[name];
  const double time = median(samples.nanoseconds);
  const double floor = median(samples.floor_nanoseconds);
  std::fprintf(out_, "| %-38s | %9s | %9s | %5.2f ", name.c_str(), time_text(time).c_str(),
               time_text(floor).c_str(), floor > 0 ? time / floor : 0);
  const auto calls = [&samples](const char* counter) {
    const auto found = samples.counters.find(counter);
    return found == samples.counters.end() ? std::string() : std::to_string(std::lround(found->second));
  };
  std::fprintf(out_, "| %5s | %11s | %11s | %5s |\n", calls("syncs").c_str(), calls("floor syncs").c_str(),
               calls("allocations").c_str(), calls("locks").c_str());
}

void Table::Finalize() {
  std::fprintf(out_, "| %-38s | %9s | %9s | %5s | syncs | floor syncs | allocations | locks |\n", "",
               "library", "floor", "ratio");
  std::fprintf(out_, "|%s|----------:|----------:|------:|------:|------------:|------------:|------:|\n",
               std::string(40, '-').c_str());
  std::ranges::sort(order_);
  for (const std::string& name : order_) {
    if (!name.starts_with(kFloor)) print_row(name);
  }
  std::fflush(out_);
}

}  // namespace bench
