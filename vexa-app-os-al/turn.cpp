// SPDX-License-Identifier: MIT
#include "turn.h"

namespace vexa {
namespace {

// Guarded by the backend's lock.
constinit uint32_t last = 0;

// Initial-exec: no call into the dynamic loader on each access, and none to link with.
[[gnu::tls_model("initial-exec")]] thread_local constinit uint32_t mine = 0;

}  // namespace

void Turn::take() {
  if (++last == 0) ++last;
  mine = last;
}

void Turn::forget() { mine = 0; }

Turn Turn::taken() { return Turn(mine); }

}  // namespace vexa
