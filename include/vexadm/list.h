/* SPDX-License-Identifier: MIT */
/**
 * @file list.h
 * Two intrusive containers with a mutex and a count: a singly linked list, and a
 * doubly linked list that keeps itself sorted by a key.
 *
 * An element is any record of the caller whose first member is the link: the
 * address of the link is the address of the element. The containers allocate and
 * free nothing; an element must stay valid while it is linked, and may be in one
 * container at a time.
 *
 *     struct job { struct list_link link; int id; };
 *     static struct list_header jobs;
 *     list_push_back(&jobs, &job.link);
 *     struct job *first = (struct job *)list_pop_front(&jobs);
 *
 * A header filled with zeros works as it is: each function first looks at the
 * flag of every header it takes and initialises the header where the flag is not
 * 1. That look is not locked. Where several threads may make the first call,
 * initialise the header before they start.
 *
 * NULL headers, links and compare functions are refused: the function does
 * nothing and returns NULL or 0. A removed link keeps the neighbours it had; what
 * it holds means nothing any more.
 *
 * Threads: each operation locks the container for its own duration, except
 * list_init(), ordered_list_init(), ordered_list_push_before() and
 * ordered_list_push_after(). The mutexes have default attributes: compare
 * functions run under them and must not call the container. Nothing here logs.
 */
#ifndef VEXADM_LIST_H
#define VEXADM_LIST_H

#include <pthread.h>

#include "export.h"

VEXA_BEGIN_DECLS

/** Nonzero when the element matches the value. Runs under the lock; must not change the container. */
typedef uint32_t (*list_compare_fn)(const void *element, const void *value);

/* ---- List ---------------------------------------------------------------- */

/** The first member of every element of a list. */
struct list_link {
  struct list_link *next; /**< following link; NULL at the end */
};
typedef struct list_link list_link;

/** A list. Zeros, or set up by list_init(); must not be moved or copied once it was used. */
struct list_header {
  struct list_link *head; /**< first link; NULL when empty */
  struct list_link *tail; /**< last link, but see list_merge(); NULL when empty */
  uint32_t count;         /**< elements */
  uint32_t initialised;   /**< 1: the header is in use */
  pthread_mutex_t lock;   /**< guards links and count */
};
typedef struct list_header list_header;

/**
 * Makes a list empty and creates its mutex. Forgets elements it held before; locks nothing.
 * @param list  memory for a list; no other thread may use it meanwhile
 */
VEXA_API void list_init(list_header *list);

/**
 * Ends the use of a list: destroys the mutex, zeroes head, tail, count and flag.
 * Elements are left as they are. The next call initialises the list again.
 * @param list  the list
 * @note No other thread may use the list meanwhile.
 */
VEXA_API void list_destroy(list_header *list);

/**
 * Puts a link before all others.
 * @param list  the list
 * @param link  in no list
 * @note Where the tail is NULL (see list_merge()), the new link stands there.
 */
VEXA_API void list_push_front(list_header *list, list_link *link);

/**
 * Removes the first link.
 * @param list  the list
 * @return it; NULL when the list is empty
 */
VEXA_API list_link *list_pop_front(list_header *list);

/**
 * Puts a link behind all others.
 * @param list  the list
 * @param link  in no list
 * @note Walks where the tail is not the last link (see list_merge()).
 */
VEXA_API void list_push_back(list_header *list, list_link *link);

/**
 * Removes the last link.
 * @param list  the list
 * @return it; NULL when the list is empty
 * @note Walks the whole list to find the new last link.
 */
VEXA_API list_link *list_pop_back(list_header *list);

/**
 * @param list  the list
 * @return the number of elements
 */
VEXA_API uint32_t list_size(list_header *list);

/**
 * @param list  the list
 * @return the first link, which stays in the list; NULL when the list is empty
 */
VEXA_API list_link *list_peek_front(list_header *list);

/**
 * @param list  the list
 * @return the tail, which stays in the list: the last link, but see list_merge().
 *         NULL when the list is empty
 */
VEXA_API list_link *list_peek_back(list_header *list);

/**
 * @param list  the list
 * @param link  a link of this list
 * @return the link after it; NULL at the end, and when the list is empty
 */
VEXA_API list_link *list_peek_next(list_header *list, list_link *link);

/**
 * @param list  the list
 * @param link  any link
 * @return the link before it; NULL for the first link, for one that is not in the
 *         list, and when the list is empty
 * @note Walks the list.
 */
VEXA_API list_link *list_peek_prev(list_header *list, list_link *link);

/**
 * Puts a link before another.
 * @param list      the list
 * @param link      in no list
 * @param existing  a link of this list; where it is not in the list, nothing happens
 * @note Walks the list.
 */
VEXA_API void list_push_before(list_header *list, list_link *link, list_link *existing);

/**
 * Puts a link behind another.
 * @param list      the list
 * @param link      in no list
 * @param existing  a link of this list, which is not checked; an empty list stays empty
 */
VEXA_API void list_push_after(list_header *list, list_link *link, list_link *existing);

/**
 * Removes a link, wherever it is.
 * @param list  the list
 * @param link  any link
 * @return link; NULL, and nothing removed, when it is not in the list
 * @note Walks the list.
 */
VEXA_API list_link *list_pop_item(list_header *list, list_link *link);

/**
 * Finds the first element that matches.
 * @param list     the list
 * @param compare  called with (element, value), the lock held
 * @param value    handed to compare
 * @return its link, which stays in the list; NULL when nothing matches
 */
VEXA_API list_link *list_linear_search(list_header *list, list_compare_fn compare, const void *value);

/**
 * Moves all elements of one list, in order, to the end of another.
 *
 * @param dst  receives them
 * @param src  is empty and usable afterwards. With dst itself nothing happens
 * @note An empty src takes its last link from a dst that has elements: dst's tail
 *       is NULL then. list_push_front() fills that place with its own link, and
 *       list_pop_front() or list_pop_item() of that link empties it again. Only
 *       list_peek_back() shows it: what works at the end of the list finds the
 *       true last link by a walk, and list_push_back(), list_pop_back() and a
 *       merge of a list with elements restore the tail.
 * @note Locks dst, then src: threads that merge in both directions at once can
 *       block each other for ever.
 */
VEXA_API void list_merge(list_header *dst, list_header *src);

/**
 * Cuts a list in two.
 *
 * @param list    keeps the links before link, possibly none
 * @param link    a link of list; it and all behind it move. Where it is not in the
 *                list, nothing happens
 * @param second  receives them. Links it held before are forgotten, so it should
 *                be empty. With list itself nothing happens
 * @note A tail that is NULL (see list_merge()) becomes second's. Walks the list.
 *       Locks list, then second.
 */
VEXA_API void list_split(list_header *list, list_link *link, list_header *second);

/* ---- Ordered list -------------------------------------------------------- */

/** What ordered_list_init() takes: an order, and a tie rule. */
enum ordered_list_rule {
  ORDERED_LIST_ASCENDING = 1,        /**< smallest key first */
  ORDERED_LIST_DESCENDING = 2,       /**< greatest key first */
  ORDERED_LIST_BEFORE_EQUALS = 4096, /**< a new element goes before those with an equal key */
  ORDERED_LIST_AFTER_EQUALS = 8192   /**< a new element goes behind those with an equal key */
};

/** The first member of every element of an ordered list. */
struct ordered_list_link {
  struct ordered_list_link *next; /**< following link; NULL at the end */
  struct ordered_list_link *prev; /**< preceding link; NULL at the front */
  uint32_t key;                   /**< what the list is sorted by; set by ordered_list_push() */
};
typedef struct ordered_list_link ordered_list_link;

/** An ordered list. Zeros, or set up by ordered_list_init(); must not be moved or copied once it was used. */
struct ordered_list_header {
  struct ordered_list_link *head; /**< first link; NULL when empty */
  struct ordered_list_link *tail; /**< last link; NULL when empty */
  uint32_t count;                 /**< elements */
  uint32_t mode;                  /**< order OR tie rule */
  uint32_t initialised;           /**< 1: the header is in use */
  pthread_mutex_t lock;           /**< guards links and count */
};
typedef struct ordered_list_header ordered_list_header;

/**
 * Makes an ordered list empty, creates its mutex, and says how it sorts.
 * Forgets elements it held before; locks nothing.
 *
 * @param list      memory for an ordered list; no other thread may use it meanwhile
 * @param order     ORDERED_LIST_ASCENDING or ORDERED_LIST_DESCENDING
 * @param tie_rule  ORDERED_LIST_BEFORE_EQUALS or ORDERED_LIST_AFTER_EQUALS
 * @note Other values are stored as they are: the list then takes no element (see
 *       ordered_list_push()). A list that was never initialised becomes ascending,
 *       new elements before equal keys.
 */
VEXA_API void ordered_list_init(ordered_list_header *list, uint32_t order, uint32_t tie_rule);

/**
 * Ends the use of an ordered list: destroys the mutex, zeroes head, count and
 * flag. Tail, mode and elements are left as they are. The next call initialises
 * the list again, as ascending with new elements before equal keys.
 * @param list  the list
 * @note No other thread may use the list meanwhile.
 */
VEXA_API void ordered_list_destroy(ordered_list_header *list);

/**
 * Puts a link where its key belongs.
 * @param list  the list
 * @param link  in no list
 * @param key   stored in the link
 * @note In a list of an undefined mode the key is stored and nothing else happens:
 *       the link is not inserted, and nobody is told.
 */
VEXA_API void ordered_list_push(ordered_list_header *list, ordered_list_link *link, uint32_t key);

/**
 * Puts a link behind another, whatever its key.
 * @param list      the list
 * @param link      in no list; its key stays
 * @param existing  a link of this list, which is not checked
 * @note Locks nothing: the caller holds list->lock, or the only reference.
 */
VEXA_API void ordered_list_push_after(ordered_list_header *list, ordered_list_link *link,
                                      ordered_list_link *existing);

/**
 * As ordered_list_push_after(), but before the other link.
 * @param list      the list
 * @param link      in no list; its key stays
 * @param existing  a link of this list, which is not checked
 */
VEXA_API void ordered_list_push_before(ordered_list_header *list, ordered_list_link *link,
                                       ordered_list_link *existing);

/**
 * Removes the first link.
 * @param list  the list
 * @return it; NULL when the list is empty
 */
VEXA_API ordered_list_link *ordered_list_pop_front(ordered_list_header *list);

/**
 * Removes the last link.
 * @param list  the list
 * @return it; NULL when the list is empty
 */
VEXA_API ordered_list_link *ordered_list_pop_back(ordered_list_header *list);

/**
 * @param list  the list
 * @return the number of elements
 */
VEXA_API uint32_t ordered_list_size(ordered_list_header *list);

/**
 * @param list  the list
 * @return the first link, which stays in the list; NULL when the list is empty
 */
VEXA_API ordered_list_link *ordered_list_peek_front(ordered_list_header *list);

/**
 * @param list  the list
 * @return the last link, which stays in the list; NULL when the list is empty
 */
VEXA_API ordered_list_link *ordered_list_peek_back(ordered_list_header *list);

/**
 * Removes a link, wherever it is.
 * @param list  the list
 * @param link  any link
 * @return link; NULL, and nothing removed, when it is not in the list
 * @note Walks the list: a link of another list must not unhinge both.
 */
VEXA_API ordered_list_link *ordered_list_pop_item(ordered_list_header *list, ordered_list_link *link);

/**
 * @param list  the list
 * @param link  a link of this list
 * @return the link after it; NULL at the end, and when the list is empty
 */
VEXA_API ordered_list_link *ordered_list_peek_next(ordered_list_header *list, ordered_list_link *link);

/**
 * @param list  the list
 * @param link  a link of this list
 * @return the link before it; NULL at the front, and when the list is empty
 */
VEXA_API ordered_list_link *ordered_list_peek_prev(ordered_list_header *list, ordered_list_link *link);

/**
 * As list_linear_search().
 * @param list     the list
 * @param compare  called with (element, value), the lock held
 * @param value    handed to compare
 * @return its link, which stays in the list; NULL when nothing matches
 */
VEXA_API ordered_list_link *ordered_list_linear_search(ordered_list_header *list, list_compare_fn compare,
                                                       const void *value);

/**
 * Cuts an ordered list in two, as list_split().
 * @param list    keeps the links before link
 * @param link    a link of list; it and all behind it move
 * @param second  receives them; should be empty
 * @note second takes over the mode of list too, by which its new elements are sorted.
 */
VEXA_API void ordered_list_split(ordered_list_header *list, ordered_list_link *link,
                                 ordered_list_header *second);

VEXA_END_DECLS

#endif
