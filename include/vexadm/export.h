/* SPDX-License-Identifier: MIT */
/**
 * @file export.h
 * What every public header of libvexadm needs: linkage and visibility.
 *
 * All functions have C linkage and never throw. Include <vexadm/vexadm.h> for
 * the whole library or one family header for a part of it.
 *
 * A thread that is inside the library must not be cancelled (pthread_cancel(3)):
 * the locks that it holds would stay taken, and what it opened stay open.
 */
#ifndef VEXADM_EXPORT_H
#define VEXADM_EXPORT_H

#include <stdint.h>

/**
 * @def VEXA_BEGIN_DECLS
 * Begins declarations of C linkage.
 * @def VEXA_END_DECLS
 * Ends them.
 */
#ifdef __cplusplus
#define VEXA_BEGIN_DECLS extern "C" {
#define VEXA_END_DECLS }
#else
#define VEXA_BEGIN_DECLS
#define VEXA_END_DECLS
#endif

/** Marks a function that the shared library exports. */
#define VEXA_API __attribute__((visibility("default")))

/** Marks an object that the shared library exports. */
#define VEXA_DATA extern __attribute__((visibility("default")))

/** Lets the compiler check printf arguments: format at index fmt, values from index first. */
#define VEXA_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))

#endif
