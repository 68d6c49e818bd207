// SPDX-License-Identifier: MIT
// Log lines of a child that was forked from a host with threads.
#ifndef VEXADM_LOG_AFTER_FORK_H
#define VEXADM_LOG_AFTER_FORK_H

#include "log/call_site.h"

namespace vexa::log {

// Writes the line as any other, and can be trusted to return: it waits for no lock that another
// thread of the host had at the fork, asks the allocator for nothing, and leaves alone what the
// host's streams still hold. For the child alone, and for functions whose names begin with the
// vendor word. The price: a message is cut to 255 characters, and when another thread was just
// logging to the host's print callback the line is dropped, because the callback may have locks of
// its own.
void write_line_after_fork(int level, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace vexa::log

#endif
