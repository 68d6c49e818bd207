/* SPDX-License-Identifier: MIT */
/**
 * @file symtab.h
 * Hashed tables from names to typed values, addressed by small integer handles,
 * with the handle-array allocator beneath them.
 *
 * Threads: nothing here locks. Tables, the handle array and the one walk are
 * shared by the process: while any thread changes a table, no other may use
 * this family. Nothing here logs or blocks.
 *
 * The data manager keeps its items in one of these tables and opens it with the
 * first vexa_dm_reg_def_items(). See symSubOpen() before calling that function.
 */
#ifndef VEXADM_SYMTAB_H
#define VEXADM_SYMTAB_H

#include "export.h"

VEXA_BEGIN_DECLS

/** Types of a value record; 0 after valueFree(). */
enum vexa_sym_type {
  VEXA_SYM_INTEGER = 3, /**< a number */
  VEXA_SYM_STRING = 10, /**< a text */
  VEXA_SYM_SYMBOL = 12  /**< a pointer that means nothing to the table */
};

/** A typed value: 14 bytes without padding, copied by value. */
struct vexa_sym_value {
  union {
    int32_t integer;  /**< VEXA_SYM_INTEGER */
    char *string;     /**< VEXA_SYM_STRING: terminated; must not be written unless allocated */
    void *symbol;     /**< VEXA_SYM_SYMBOL: opaque */
    uint8_t bytes[8]; /**< the whole union; bytes that no constructor sets are 0 */
  } value;
  uint32_t type;     /**< vexa_sym_type */
  uint8_t valid;     /**< 1 once a constructor set the record */
  uint8_t allocated; /**< 1 when string is a private copy that valueFree() frees */
} __attribute__((packed));
typedef struct vexa_sym_value vexa_sym_value;

/** An entry of a table. Owned by the table; valid until it is deleted or the table closed. */
struct vexa_sym_entry {
  struct vexa_sym_entry *next;   /**< next entry of the same bucket */
  struct vexa_sym_value name;    /**< an allocated string */
  struct vexa_sym_value content; /**< as given to symEnter() */
  int32_t arg;                   /**< as given to symEnter() */
};
typedef struct vexa_sym_entry vexa_sym_entry;

/* ---- Tables -------------------------------------------------------------- */

/**
 * Counts one user of the module. The first one finds it without tables: tables
 * that are open already are forgotten, not closed, and their handles are bad
 * from then on. Call it before anything else, or not at all; symOpen() does not
 * need it.
 * @return 0
 */
VEXA_API int32_t symSubOpen(void);

/** Counts one user less, never below 0. Closes no table. */
VEXA_API void symSubClose(void);

/**
 * Opens an empty table.
 *
 * @param hash_size  wished number of buckets; the largest prime not above it is
 *                   used, 1 for sizes of 1 or less
 * @return the table's handle, the lowest free one, 0 or more; -1 when memory is short
 */
VEXA_API int32_t symOpen(int32_t hash_size);

/**
 * Closes a table: frees its entries, their names and their allocated contents.
 * @param handle  a handle that is not open is ignored
 */
VEXA_API void symClose(int32_t handle);

/**
 * Finds an entry.
 * @param handle  table
 * @param name  terminated text
 * @return the entry; NULL when there is none, the handle is not open, or name is
 *         NULL or empty (an entry with an empty name is reached by a walk only)
 */
VEXA_API vexa_sym_entry *symLookup(int32_t handle, const char *name);

/**
 * Adds a name or replaces what it stands for.
 *
 * @param handle   table
 * @param name     terminated text, not NULL, may be empty; copied
 * @param content  stored as it is. An allocated string then belongs to the table,
 *                 also when the name was there before; the old one is freed
 * @param arg      stored as it is
 * @return the entry: a new one at the end of its bucket, or the old one in its
 *         place; NULL when memory is short or the handle is not open, and then
 *         content still belongs to the caller
 */
VEXA_API vexa_sym_entry *symEnter(int32_t handle, const char *name, vexa_sym_value content, int32_t arg);

/**
 * Removes an entry and frees its name and its allocated content.
 *
 * @param handle  must be open: a bad handle ends the process with a segmentation fault
 * @param name    terminated text, not NULL; an empty name is found
 * @retval 0  removed
 * @retval -1 no such name
 * @note A running walk is not told: when the entry that symNext() would return
 *       is removed, start the walk again.
 */
VEXA_API int32_t symDelete(int32_t handle, const char *name);

/**
 * Starts a walk over all entries, bucket by bucket, each from its oldest entry.
 * @param handle  table
 * @return the first entry; NULL when the table is empty or the handle not open
 * @note One walk at a time in the whole process. The entry that was returned
 *       last may be deleted; closing the table that is walked ends the walk: symNext()
 *       then gives NULL. Other tables may be closed.
 */
VEXA_API vexa_sym_entry *symFirst(int32_t handle);

/**
 * Continues the walk that symFirst() started.
 * @param handle  the same handle
 * @return the next entry; NULL at the end, again and again, or when the handle is not open
 */
VEXA_API vexa_sym_entry *symNext(int32_t handle);

/* ---- Handle arrays ------------------------------------------------------- */

/**
 * Takes a slot of a handle array. The slot is not filled: as long as the caller
 * leaves it NULL it counts as used but is found again by the next hAlloc().
 *
 * An array starts with 16 slots, all NULL, and grows by 16. In front of slot 0
 * stand two pointers to int32_t: (*array)[-2] to the number of slots there are,
 * (*array)[-1] to the number in use.
 *
 * @param array  points to NULL before the first call, which creates the array;
 *               a later call may move it
 * @return the index of the first NULL slot; -1 when memory is short, and then
 *         the array is as before
 */
VEXA_API int32_t hAlloc(void ***array);

/**
 * Gives a slot back: sets it to NULL and counts it out, also when it was NULL
 * already. What the slot pointed to is not freed.
 *
 * @param array  an array made by hAlloc(); freed, and *array set to NULL, with
 *               the last slot in use
 * @param index  a slot that hAlloc() returned
 * @return the highest index in use plus 1; 0 when the array was freed or every
 *         slot is NULL; -1 when there is no such array or slot, and nothing changed
 */
VEXA_API int32_t hFree(void ***array, int32_t index);

/**
 * Takes a slot and fills it.
 *
 * @param array  as for hAlloc()
 * @param max    the caller's bound, not NULL; raised to the index plus 1 when it
 *               is not above the index
 * @param size   bytes of a zeroed object to put into the slot, to be freed with
 *               free(); 0 or less leaves the slot NULL for the caller to fill
 * @return the index; -1 when memory is short, and then no slot is taken and max
 *         is unchanged
 */
VEXA_API int32_t hAllocEntry(void ***array, int32_t *max, int32_t size);

/* ---- Value records ------------------------------------------------------- */

/**
 * @param integer  number
 * @return a record of type VEXA_SYM_INTEGER
 */
VEXA_API vexa_sym_value valueInteger(int32_t integer);

/**
 * @param symbol  pointer
 * @return a record of type VEXA_SYM_SYMBOL; symbol is kept as it is and never
 *         freed
 */
VEXA_API vexa_sym_value valueSymbol(void *symbol);

/**
 * @param string  terminated text; without bit 0 of flags it must outlive the record
 * @param flags   bit 0: keep a private copy, allocated; NULL is copied as an
 *                empty text. Other bits are ignored
 * @return a record of type VEXA_SYM_STRING; a copy for which memory is short
 *         leaves a NULL string in it
 */
VEXA_API vexa_sym_value valueString(const char *string, int32_t flags);

/**
 * Frees the string of a valid, allocated string record and clears type, valid
 * and allocated. The bytes of the value stay.
 * @param value  not NULL
 */
VEXA_API void valueFree(vexa_sym_value *value);

/* ---- Allocation names that callers of the tables expect ------------------- */

/** Does nothing. */
VEXA_API void bopen(void);

/**
 * Does nothing.
 * @param argument  anything
 * @return its argument
 */
VEXA_API void *bclose(void *argument);

/**
 * Does nothing.
 * @param argument  anything
 * @return its argument
 */
VEXA_API void *bstats(void *argument);

/**
 * @param string  text, or NULL
 * @return a copy of a terminated text (of the empty text for NULL), to be freed
 *         with free(); NULL when memory is short
 */
VEXA_API char *bstrdupNoBalloc(const char *string);

/**
 * The same as bstrdupNoBalloc().
 * @param string  as there
 * @return as there
 */
VEXA_API char *bstrdupANoBalloc(const char *string);

/**
 * @param data   count bytes to copy; NULL: the block stays zeroed
 * @param count  bytes; 0 gives a block without usable bytes
 * @return a new block, to be freed with free(); NULL when count is negative or memory is short
 */
VEXA_API void *bmemdupNoBalloc(const void *data, int32_t count);

VEXA_END_DECLS

#endif
