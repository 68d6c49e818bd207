// SPDX-License-Identifier: MIT
// Words of public records that several threads read and write without a lock.
#ifndef VEXADM_OS_RELAXED_H
#define VEXADM_OS_RELAXED_H

#include <cstdint>

namespace vexa {

// The records are plain C, so the word itself cannot be declared atomic.
inline int32_t relaxed_load(const int32_t& word) { return __atomic_load_n(&word, __ATOMIC_RELAXED); }
inline void relaxed_store(int32_t& word, int32_t value) { __atomic_store_n(&word, value, __ATOMIC_RELAXED); }

}  // namespace vexa

#endif
