/* SPDX-License-Identifier: MIT */
/**
 * @file semaphore.h
 * A counting semaphore whose time-outs do not care about the wall clock.
 *
 * Threads post events and wait for them. Time-outs run on the monotonic clock
 * (CLOCK_MONOTONIC of POSIX): setting the date neither shortens nor stretches a
 * wait. The record belongs to the caller; the library allocates nothing.
 *
 * Except vexa_cmn_sem_init() and vexa_cmn_sem_deinit(), each function holds the
 * record's lock while it works, and any number of threads may call them at once.
 * Only vexa_cmn_sem_timedwait() waits and logs.
 */
#ifndef VEXADM_SEMAPHORE_H
#define VEXADM_SEMAPHORE_H

#include <pthread.h>

#include "export.h"

VEXA_BEGIN_DECLS

/** A semaphore. Set up by vexa_cmn_sem_init(); must not be moved or copied afterwards. */
struct vexa_cmn_sem {
  pthread_mutex_t lock;        /**< default attributes; guards value */
  pthread_cond_t cond;         /**< on the monotonic clock */
  pthread_condattr_t condattr; /**< what cond was created with */
  int32_t value;               /**< events that nobody has taken yet */
};
typedef struct vexa_cmn_sem vexa_cmn_sem;

/**
 * A time span. Two longs, which is the layout of struct timeval wherever time_t
 * is a long; it is a record of its own because the width of time_t is a matter of
 * how the host was compiled.
 */
struct vexa_cmn_timeval {
  long seconds;      /**< whole seconds */
  long microseconds; /**< 0 to 999999 */
};
typedef struct vexa_cmn_timeval vexa_cmn_timeval;

/**
 * Sets up a semaphore with the value 0.
 * @param sem  memory for a semaphore; no other thread may use it meanwhile
 * @retval 0 done
 * @retval 1 sem is NULL
 */
VEXA_API uint32_t vexa_cmn_sem_init(vexa_cmn_sem *sem);

/**
 * Ends the use of a semaphore: destroys the lock and sets the value to 0. The
 * condition variable and its attributes are left alive; on Linux they hold
 * nothing that would have to be given back.
 * @param sem  no thread may use it any more, or wait for it; NULL does nothing
 */
VEXA_API void vexa_cmn_sem_deinit(vexa_cmn_sem *sem);

/**
 * Adds 1 to the value and wakes one of the threads that wait.
 * @param sem  semaphore
 * @retval 0 done; a value of 2147483647 stays
 * @retval 1 sem is NULL
 */
VEXA_API uint32_t vexa_cmn_sem_post(vexa_cmn_sem *sem);

/**
 * Takes 1 from the value, or waits until there is something to take.
 *
 * @param sem      semaphore
 * @param timeout  how long to wait. NULL, or both fields 0: until there is
 *                 something to take, however long that lasts
 * @retval 0 taken
 * @retval 1 sem is NULL; or the wait ended before its time with nothing to take:
 *           woken for no reason, an event that another thread took first, or a
 *           timeout that is none (microseconds below 0 or above 1000000 may not make
 *           a valid deadline; the call then does not wait). A timed wait does
 *           not wait again; the caller decides
 * @retval 2 timed out, also for a deadline in the past ("Timed out waiting!\n",
 *           level 1)
 * @note Logs "sem_cond_value=%d\n" (the value found) at level 0, the lock held: a
 *       print callback must not use the same semaphore.
 */
VEXA_API uint32_t vexa_cmn_sem_timedwait(vexa_cmn_sem *sem, const vexa_cmn_timeval *timeout);

/**
 * Forgets events that nobody has taken: sets the value to 0.
 * @param sem  semaphore
 * @retval 0 done
 * @retval 1 sem is NULL
 */
VEXA_API uint32_t vexa_cmn_sem_reset_value(vexa_cmn_sem *sem);

VEXA_END_DECLS

#endif
