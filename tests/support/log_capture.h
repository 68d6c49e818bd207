// SPDX-License-Identifier: MIT
// The log lines of the library, taken apart field by field.
#ifndef VEXADM_TESTS_LOG_CAPTURE_H
#define VEXADM_TESTS_LOG_CAPTURE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vexa_test {

// One emitted line. The function is the field as shown, so vexa_dm_write appears as oem_dm_write.
struct LogLine {
  int level;  // 0 to 4 by the tag; -1 when the tag is the null marker or the line has another shape
  std::string function;
  int line;
  std::string message;  // with its own line end, if it has one
};

// Takes over the print callback and opens the level filter (level 0) for its lifetime; afterwards
// lines go to standard output again at the level of before. One at a time; the logger's mutex
// guards the list while threads log, so look at it after they are joined.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<LogLine>& lines() const;
  void clear();
  bool has(int level, std::string_view function, std::string_view message) const;
  std::size_t count(std::string_view message) const;
  std::vector<std::string> messages() const;

 private:
  int level_before_;
};

}  // namespace vexa_test

#endif
