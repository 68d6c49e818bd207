/* SPDX-License-Identifier: MIT */
/**
 * @file command_data.h
 * The data records that the framework's command queues carry.
 *
 * A record has a command type and a payload. What a type means is the framework's
 * business; here it says what a record owns:
 *
 * | type                 | payload                   | freed with the record                |
 * |----------------------|---------------------------|--------------------------------------|
 * | 0, 4                 | 45 bytes, vexa_cmd_q_list | both texts, all of the array, itself |
 * | 5                    | 17 bytes, vexa_cmd_q_text | the text, itself                     |
 * | 13, 15               | vexa_cmd_q_text           | the text, itself                     |
 * | 7, 8, 10, 11, 12, 14 | any                       | itself                               |
 * | 6, 9                 | any                       | nothing: the payload is someone else's |
 *
 * Only records of types 0, 4 and 5 are made here. The framework makes the others; all
 * they own comes from malloc(). An owned member that is NULL has nothing to free.
 */
#ifndef VEXADM_COMMAND_DATA_H
#define VEXADM_COMMAND_DATA_H

#include "export.h"

VEXA_BEGIN_DECLS

/** A record of a command queue. */
typedef struct vexa_cmd_q_data {
  int32_t cmd_type; /**< see the table above */
  void *payload;    /**< of the size that the type asks for; NULL: none */
} vexa_cmd_q_data;

/** Bytes of the payload of types 0 and 4. */
#define VEXA_CMD_Q_LIST_SIZE 45

/** How the payload of types 0 and 4 begins; the bytes behind it are the framework's. */
typedef struct vexa_cmd_q_list {
  char *text;           /**< owned, or NULL */
  char *second_text;    /**< owned, or NULL */
  char **entries;       /**< owned, or NULL: an array of entry_count owned texts, any of them NULL */
  uint32_t entry_count; /**< texts in entries */
} vexa_cmd_q_list;

/** Bytes of the payload of type 5. */
#define VEXA_CMD_Q_TEXT_SIZE 17

/** How the payload of types 5, 13 and 15 begins; the bytes behind it are the framework's. */
typedef struct vexa_cmd_q_text {
  char *text; /**< owned, or NULL */
} vexa_cmd_q_text;

/**
 * Makes a record with its payload, all of it zero but the type.
 *
 * @param type  0, 4 or 5
 * @return the record, never NULL; to be freed with vexa_free_cmd_q_data()
 * @note Any other type is a programming error, logged at level 3 ("Invalid CMD type:
 *       %d\n"). That and a lack of memory print "vexa_common_def,
 *       line: <n>" to standard output and abort the process. Thread-safe.
 */
VEXA_API vexa_cmd_q_data *vexa_malloc_cmd_q_data(int32_t type);

/**
 * Frees a record and what it owns.
 *
 * @param record  from vexa_malloc_cmd_q_data() or the framework; NULL is logged at level 3
 *                ("oem_free_cmd_q_data invalid queue data\n")
 * @note Logs "oem_free_cmd_q_data:cmd_type=%d, %p\n", with the record's address, at level
 *       0. Of a type that the table above has not, the record alone is freed and "Invalid
 *       CMD type: %d\n" logged at level 3: what its payload owns, nobody knows here.
 *       Thread-safe for distinct records.
 */
VEXA_API void vexa_free_cmd_q_data(vexa_cmd_q_data *record);

VEXA_END_DECLS

#endif
