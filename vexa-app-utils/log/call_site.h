// SPDX-License-Identifier: MIT
// How every room of the library logs and asserts.
#ifndef VEXADM_LOG_CALL_SITE_H
#define VEXADM_LOG_CALL_SITE_H

#include <cstdarg>
#include <cstddef>

namespace vexa::log {

enum Level : int { kDebug = 0, kInfo = 1, kWarning = 2, kError = 3, kCritical = 4 };

// Bytes of the message buffer that each call owns.
inline constexpr std::size_t kMessageSize = 4220;

// True when a line of this level would go anywhere. Lock-free, so that a filtered
// call costs one load; vexa_log_printf decides again under its mutex.
bool passes(int level);

// The body of vexa_log_printf for callers that hold a va_list already.
int vprint(int level, char* buffer, const char* function, int line, const char* format, std::va_list values)
    __attribute__((format(printf, 5, 0)));

// One call site: level filter, message buffer, logger, and the console line when the external log
// tool is on. Keeps errno, so that a call site may log before it looks at errno.
void write_line(int level, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Says where on standard output, flushed so that a redirected output has it too, and aborts.
[[noreturn]] void assertion_failed(const char* source, int line);

}  // namespace vexa::log

// The function name is a literal at each call site: it is what one greps a log for, and it
// is not always the name of the function around it.
// What is compiled for size leaves the filter to write_line: at three hundred call sites a look at the
// level is 2.5 KiB. What is compiled for speed does not even call it.
#ifdef __OPTIMIZE_SIZE__
#define VEXA_LOG(level, function, ...) ::vexa::log::write_line(level, function, __LINE__, __VA_ARGS__)
#else
#define VEXA_LOG(level, function, ...)                                 \
  do {                                                                 \
    if (::vexa::log::passes(level)) {                                  \
      ::vexa::log::write_line(level, function, __LINE__, __VA_ARGS__); \
    }                                                                  \
  } while (false)
#endif

// A programming error that must not happen: stops the process. The source is a literal too.
#define VEXA_ASSERT(condition, source)                 \
  do {                                                 \
    if (!(condition)) {                                \
      ::vexa::log::assertion_failed(source, __LINE__); \
    }                                                  \
  } while (false)

#endif
