/* SPDX-License-Identifier: MIT
 * The records as a host's compiler sees them, in C and in C++, with times and file offsets of the
 * processor's own width and of 64 bits: the numbers of the table are the same for all. There is
 * nothing to run.
 */
#include <stddef.h>
#include <vexadm/vexadm.h>

#ifdef __cplusplus
#define CHECK(condition, text) static_assert(condition, text)
#define ALIGNMENT(type) alignof(type)
#else
#define CHECK(condition, text) _Static_assert(condition, text)
#define ALIGNMENT(type) _Alignof(type)
#endif
#define AS_HERE(at_4, at_8) (sizeof(void*) == 4 ? (at_4) : (at_8))

CHECK(sizeof(void*) == 4 || sizeof(void*) == 8, "the table knows pointers of 4 and of 8 bytes");

#define RECORD(kind, record, size_4, size_8, align_4, align_8)               \
  CHECK(sizeof(kind record) == AS_HERE(size_4, size_8), "size of " #record); \
  CHECK(ALIGNMENT(kind record) == AS_HERE(align_4, align_8), "alignment of " #record);
#define FIELD(kind, record, field, at_4, at_8) \
  CHECK(offsetof(kind record, field) == AS_HERE(at_4, at_8), "offset of " #record "." #field);
#include "record_layout.h"
