// SPDX-License-Identifier: MIT
// What a running child writes, and how long it may be silent.
#ifndef VEXADM_OS_EXEC_WATCH_H
#define VEXADM_OS_EXEC_WATCH_H

#include <sys/types.h>

#include <cstdint>

#include "owners.h"

namespace vexa {

// The start of a child's output in a buffer of the caller, which may be NULL.
class CollectedOutput {
 public:
  CollectedOutput(char* result, uint32_t size) : result_(result), most_(static_cast<int32_t>(size - 1)) {}

  // The terminator comes with a byte: a child that says nothing leaves the buffer as it was.
  void put(char byte) {
    if (!result_ || count_ >= most_) return;
    result_[count_++] = byte;
    result_[count_] = '\0';
  }

 private:
  char* result_;
  int32_t most_;
  int32_t count_ = 0;
};

// The ends to read of a child's pipes. Bytes of the liveness pipe mean nothing, its end does.
struct ChildPipes {
  Descriptor liveness;
  Descriptor output;
};

// Waits until both pipes have ended. False when they did not: waiting failed, or the child was
// silent for too long and has been killed.
bool watch_child(pid_t child, ChildPipes& pipes, CollectedOutput collected);

}  // namespace vexa

#endif
