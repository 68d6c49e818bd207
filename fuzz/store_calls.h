// SPDX-License-Identifier: MIT
// The calls of a fuzz input, each held against what it may answer.
#ifndef VEXADM_FUZZ_STORE_CALLS_H
#define VEXADM_FUZZ_STORE_CALLS_H

#include "fuzz_target.h"

namespace vexa_fuzz {

// Makes one call of the input's choice. "sound": nothing has damaged the files yet, so that
// a write has to succeed and to be read back.
void call_the_store(Source& source, bool sound);

// The steps of a start of the process, which the library itself takes only once.
void start_again();

}  // namespace vexa_fuzz

#endif
