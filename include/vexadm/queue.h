/* SPDX-License-Identifier: MIT */
/**
 * @file queue.h
 * An intrusive, circular, doubly linked queue with a mutex and a count.
 *
 * An element is any record of the caller whose first member is a q_link_node:
 * the address of the link is the address of the element. The queue allocates
 * and frees nothing; an element must stay valid while it is linked, and may be
 * in one queue at a time.
 *
 *     struct job { struct q_link_node link; int id; };
 *     struct q_queue jobs;
 *     q_init(&jobs);
 *     q_put(&jobs, q_link(&job, &job.link));
 *     struct job *first = (struct job *)q_get(&jobs);
 *
 * NULL queues and links are programming errors. They are announced on standard
 * output, flushed, with the line
 *
 *     ...in file queue/queueAssertion failed...
 *
 * and then used nevertheless, which ends the process with a segmentation
 * fault. q_put() locks before it looks at its arguments, so that there a NULL
 * queue faults without the line. Exceptions stand with their functions.
 *
 * Threads: each operation locks the queue for its own duration, except
 * q_init(), q_link() and q_cnt(), which lock nothing, and q_linear_search(),
 * which locks step by step. The mutex has default attributes: callbacks that run
 * under it (q_linear_delete(), q_linear_delete_new()) must not call the queue.
 * Nothing here logs.
 */
#ifndef VEXADM_QUEUE_H
#define VEXADM_QUEUE_H

#include <pthread.h>

#include "export.h"

VEXA_BEGIN_DECLS

/** The first member of every element. */
struct q_link_node {
  struct q_link_node *next; /**< following link, or the header at the end; NULL: in no queue */
  struct q_link_node *prev; /**< preceding link, or the header at the front */
};
typedef struct q_link_node q_link_node;

/** A queue. Set up by q_init(); must not be moved or copied afterwards. */
struct q_queue {
  struct q_link_node ends; /**< the header: next is the first link, prev the last, both itself when empty */
  int32_t count;           /**< elements */
  pthread_mutex_t lock;    /**< guards ring and count */
};
typedef struct q_queue q_queue;

/** Nonzero when the element matches the value. Must not change the queue. */
typedef uint32_t (*q_compare_fn)(const void *element, const void *value);

/** Does something with an element that was removed. */
typedef void (*q_action_fn)(void *element, void *value);

/**
 * Makes a queue empty and creates its mutex. Forgets elements it held before.
 * @param queue  memory for a queue; no other thread may use it meanwhile
 * @return queue
 */
VEXA_API q_queue *q_init(q_queue *queue);

/**
 * Ends the use of a queue: zeroes header and count, destroys the mutex.
 * Elements are left as they are.
 * @param queue  the queue
 * @return the result of pthread_mutex_destroy(): 0, or an errno value
 */
VEXA_API int32_t q_destroy(q_queue *queue);

/**
 * Marks an element as being in no queue.
 * @param element  not used; may be NULL
 * @param link     both its pointers become NULL
 * @return link
 */
VEXA_API q_link_node *q_link(void *element, q_link_node *link);

/**
 * Appends a link.
 * @param queue  the queue
 * @param link   in no queue
 */
VEXA_API void q_put(q_queue *queue, q_link_node *link);

/**
 * Removes the first element.
 * @param queue  the queue
 * @return its link, next set to NULL and prev left as it was; NULL when the
 *         queue is empty, or when its header holds no next link (a destroyed or
 *         zeroed queue): then the mutex stays locked, so that further use of the
 *         dead queue stops instead of going on
 */
VEXA_API q_link_node *q_get(q_queue *queue);

/**
 * Removes the first element and leaves both its pointers as they were.
 * @param queue  the queue
 * @return as q_get()
 * @note A first link without a next link is a broken ring: prints
 *       "link_ptr->next_ptr is NULL" and a line end, then faults.
 */
VEXA_API q_link_node *q_get_ext(q_queue *queue);

/**
 * Removes the last element.
 * @param queue  the queue
 * @return its link, next set to NULL; NULL when the queue is empty
 */
VEXA_API q_link_node *q_last_get(q_queue *queue);

/**
 * @param queue  the queue
 * @return the first link, which stays in the queue; NULL when the queue is empty
 */
VEXA_API q_link_node *q_check(q_queue *queue);

/**
 * @param queue  the queue
 * @return the last link, which stays in the queue; NULL when the queue is empty
 */
VEXA_API q_link_node *q_last_check(q_queue *queue);

/**
 * @param queue  the queue
 * @param link  a link of this queue
 * @return the link after it; NULL at the end of the queue
 */
VEXA_API q_link_node *q_next(q_queue *queue, q_link_node *link);

/**
 * Puts a link before another.
 * @param queue     the queue
 * @param link      in no queue
 * @param existing  a link of this queue
 */
VEXA_API void q_insert(q_queue *queue, q_link_node *link, q_link_node *existing);

/**
 * Removes a link, wherever it is; its next becomes NULL, its prev stays.
 * @param queue  the queue
 * @param link  a link of this queue, reached through a correct prev: see q_m_put(),
 *              q_linear_delete() and q_linear_delete_new(), which leave some stale
 */
VEXA_API void q_delete(q_queue *queue, q_link_node *link);

/**
 * As q_delete().
 * @param queue  the queue
 * @param link   a link of this queue, as for q_delete()
 * @return 1
 */
VEXA_API uint32_t q_delete_ext(q_queue *queue, q_link_node *link);

/**
 * @param queue  the queue
 * @return the number of elements, read without the lock: a hint while other
 *         threads use the queue
 */
VEXA_API int32_t q_cnt(q_queue *queue);

/**
 * Moves all elements of one queue, in order, to the end of another.
 *
 * @param destination  receives them
 * @param source       is empty and usable afterwards; another queue than destination
 * @note An empty source ends the call at once, even with a NULL destination, which
 *       is only announced. With source as destination the call blocks for ever.
 * @note Locks source, then destination: threads that move in both directions at
 *       once can block each other for ever.
 * @note The first moved link's prev still names source: reach it through next,
 *       q_get() or q_check(), and do not give it to q_delete(), q_insert() or, as
 *       the last one left, to q_last_get().
 * @note A negative count or a missing prev in source is a broken queue: prints
 *       the assertion line, adds the count, and leaves destination without a last
 *       link. It must not be used any more.
 */
VEXA_API void q_m_put(q_queue *destination, q_queue *source);

/**
 * Finds the first element that matches.
 *
 * @param queue    the queue
 * @param compare  called with (element, value), without the lock. NULL: the
 *                 assertion line, then a fault at the first element; an empty
 *                 queue still gives NULL
 * @param value    handed to compare
 * @param unused   ignored
 * @return its link, which stays in the queue; NULL when nothing matches
 * @note Not atomic: elements may come and go between two steps. Nobody may
 *       remove the element that compare is looking at. A NULL queue is announced
 *       twice, here and by the first step.
 */
VEXA_API q_link_node *q_linear_search(q_queue *queue, q_compare_fn compare, const void *value,
                                      const void *unused);

/**
 * Removes the first element that matches and hands it to an action.
 *
 * @param queue    the queue
 * @param compare  called with (element, NULL) under the lock: the value goes to
 *                 the action alone. NULL: nothing happens, whatever queue is
 * @param value    handed to action
 * @param action   called with (element, value) under the lock; may free the
 *                 element; may be NULL
 * @note Treats the queue as singly linked. A match behind another element leaves
 *       the follower's prev, and the header's prev when the match was the last
 *       element, as they were; only when a single element remains is the header's
 *       prev set to it. After that use q_get(), q_check(), q_next() and the linear
 *       functions only.
 */
VEXA_API void q_linear_delete(q_queue *queue, q_compare_fn compare, void *value, q_action_fn action);

/**
 * As q_linear_delete(), with a value for each callback.
 *
 * @param queue          the queue
 * @param compare        called with (element, compare_value) under the lock
 * @param compare_value  handed to compare
 * @param action         called with (element, action_value) under the lock; may be NULL
 * @param action_value   handed to action
 * @return the removed link (do not follow it when action freed the element);
 *         NULL when nothing matched, or queue or compare is NULL
 * @note The header's prev is never repaired when the last of several elements is
 *       removed, not even when a single one remains.
 */
VEXA_API q_link_node *q_linear_delete_new(q_queue *queue, q_compare_fn compare, const void *compare_value,
                                          q_action_fn action, void *action_value);

VEXA_END_DECLS

#endif
