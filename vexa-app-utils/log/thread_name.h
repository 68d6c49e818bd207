// SPDX-License-Identifier: MIT
#ifndef VEXADM_LOG_THREAD_NAME_H
#define VEXADM_LOG_THREAD_NAME_H

#include "owners.h"

namespace vexa::log {

// What the kernel calls a thread of this process. Null when it does not say or memory is short.
HeapText thread_name(int pid, int tid);

}  // namespace vexa::log

#endif
