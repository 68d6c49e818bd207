/* SPDX-License-Identifier: MIT */
/**
 * @file data_manager.h
 * The data manager: configuration items by number, kept in a storage backend.
 *
 * A program makes a handle (vexa_dm_reg()), registers its item table
 * (vexa_dm_reg_def_items()) and then reads and writes items by id. Reads come
 * from the memory cache, then from the backend, then from the defaults.
 *
 * Result codes of the family, unless a function lists others:
 *
 * | code | meaning                                                             |
 * |------|---------------------------------------------------------------------|
 * |    0 | success; for a read: an empty value                                 |
 * |  > 0 | bytes of the value that a read delivers                             |
 * |   -1 | no default for the item, or nothing registered                      |
 * |   -3 | NULL argument, bad length, or an id that is not registered          |
 * |   -4 | the symbol table of the items could not be opened                   |
 *
 * Codes of the backend (storage.h) pass through where a function says so.
 *
 * Process-wide state: item table, cache, change callback and run-clean state
 * belong to the process, not to a handle, and live until it ends. Registration
 * (vexa_dm_reg_def_items(), vexa_dm_reg_event_callback()) takes no lock: do it
 * before other threads use the family. After that, reads, writes and cache
 * calls may come from any thread; the backend serialises storage, the cache
 * locks each entry. Two threads that store the same new id at the same moment
 * may make two entries, of which the first one answers from then on. However many
 * threads write and read an item: the cache ends with what the backend served last.
 *
 * Blocking: what reaches the backend does file input and output and waits for
 * locks of other processes, in all at most VEXA_STORAGE_BUSY_MS per call; the
 * change callback's own time does not count. A read that the cache answers
 * touches no file.
 *
 * Logging: arguments are refused at level 3 with "%s param NULL\n", an id
 * that is not registered at level 3 with "symLookup failed: %s\n" and the id in
 * decimal. A slot that is NULL although it is needed, or memory that runs out
 * where no result could say so, prints "data_manager/vexa_app_dm, line: %d\n"
 * ("data_manager/vexa_dm_sync_mem" for the cache) on standard output and aborts.
 */
#ifndef VEXADM_DATA_MANAGER_H
#define VEXADM_DATA_MANAGER_H

#include "types.h"

VEXA_BEGIN_DECLS

/** Bytes of the buffer that holds a key-value text, its terminator included. */
#define DM_MAX_KEY_VALUE_STRLEN 1024

/** Most bytes of a key and its value together. */
#define VEXA_DM_KEY_VALUE_PAIR_MAX 512

/** Bytes of one row of keys or values that vexa_dm_read_key_value_pairs() fills. */
#define VEXA_DM_KEY_VALUE_ROW_SIZE 256

/**
 * Told after the backend has accepted a value, before the cache has it.
 *
 * Runs in the writer's thread. A vexa_dm_read() of the id from here still
 * gives what the cache held before; if the id was not cached, the new value, or the
 * default when the item was emptied.
 *
 * @param id      item id
 * @param data    length bytes, the writer's own buffer; borrowed for the call
 * @param length  bytes; 0 from vexa_dm_empty()
 */
typedef void (*vexa_dm_event_fn)(int32_t id, const void *data, int32_t length);

/* ---- Handle and backend ------------------------------------------------- */

/**
 * Makes a data-manager handle and lets the backend fill its slots.
 *
 * @param type  VEXA_DM_BACKEND_SQLITE; any other number leaves all slots NULL
 * @return the handle, never NULL; the caller owns it and frees it with
 *         vexa_dm_unreg(). Aborts when memory runs out.
 * @note The first call of a process with VEXA_DM_BACKEND_SQLITE does what
 *       sqlite_reg() describes, file access included, and must return before
 *       other threads use the family.
 */
VEXA_API struct vexa_dm_handle *vexa_dm_reg(uint32_t type);

/**
 * Frees a handle and nothing else: items, cache and callback stay.
 *
 * @param handle  from vexa_dm_reg(); not to be used any more
 * @return 0; -1 for a NULL handle
 * @note Logs nothing.
 */
VEXA_API int32_t vexa_dm_unreg(struct vexa_dm_handle *handle);

/**
 * Lets the backend of a type fill an operation table.
 *
 * @param type   VEXA_DM_BACKEND_SQLITE calls sqlite_reg(); any other number does nothing
 * @param slots  borrowed for the call; not NULL
 */
VEXA_API void dm_pal_reg(uint32_t type, struct vexa_dm_backend_ops *slots);

/**
 * Moves the storage of a backend; call it before the first database access.
 *
 * @param type        backend type
 * @param first_dir   directory of the primary, ending in "/"; may be NULL
 * @param second_dir  directory of the backup, ending in "/"; may be NULL
 * @return for VEXA_DM_BACKEND_SQLITE the result of sqlite_reg_store_area() as a
 *         pointer: NULL when done, otherwise the length of the refused
 *         directory (cast it to uintptr_t, never dereference it); for any other
 *         type first_dir itself
 * @note Not thread-safe. Logs nothing. Touches no file.
 */
VEXA_API const char *dm_pal_reg_store_area(uint32_t type, const char *first_dir, const char *second_dir);

/**
 * The same as dm_pal_reg_store_area().
 *
 * @param type        backend type
 * @param first_dir   directory of the primary, ending in "/"; may be NULL
 * @param second_dir  directory of the backup, ending in "/"; may be NULL
 * @return as dm_pal_reg_store_area()
 */
VEXA_API const char *vexa_dm_reg_store_area(uint32_t type, const char *first_dir, const char *second_dir);

/**
 * Tells whether the stored items and the stored defaults carry this build's schema version.
 *
 * @param type   backend type
 * @param match  VEXA_DM_BACKEND_SQLITE: as sqlite_chk_db_ver_match(), 1 or 0,
 *               untouched when a version cannot be read; untouched for any
 *               other type. Set it to 0 before the call.
 * @note Blocks on storage. Logs what sqlite_chk_db_ver_match() logs.
 */
VEXA_API void dm_pal_check_db_version_match(uint32_t type, uint8_t *match);

/**
 * The same as dm_pal_check_db_version_match().
 *
 * @param type   backend type
 * @param match  receives 1 or 0, or stays as it was
 */
VEXA_API void vexa_dm_check_db_version_match(uint32_t type, uint8_t *match);

/**
 * Checks a database file.
 *
 * @param path  database file
 * @return the result of check_database_health(), whatever backend is in use
 */
VEXA_API uint32_t dm_pal_check_db_health(const char *path);

/* ---- Items -------------------------------------------------------------- */

/**
 * Reads an item: from the cache, else from the backend (which fills the cache),
 * else its default (which does not).
 *
 * The cache answers before the item is looked up, so a cached id need not be
 * registered. In run-clean state the backend is left out.
 *
 * Which default: while the schema versions match, the one of the stored
 * defaults, whose failure is final; otherwise the compiled-in one.
 *
 * @param handle  handle
 * @param id      item id
 * @param buffer  at least len bytes; receives the value, without a terminator
 * @param len     capacity in bytes, at least 1. Offer room for the longest value: a
 *                stored one that does not fit fails its CRC, which gives the default,
 *                or is cut, and stays cut in the cache, where its CRC is 0
 * @return bytes of the value, 0 when it is empty, when run-clean state
 *         suppresses the stored default (the buffer is untouched then), or for a
 *         compiled-in default whose type is not 1 to 6;
 *         -3 NULL handle or buffer, len < 1, id neither cached nor registered;
 *         -1 nothing stored and no default; with matching versions the result
 *         of reading the stored defaults (-1, -100, -101).
 *         A cached value longer than len is cut and len returned. A
 *         compiled-in text is cut to len, but its whole length is returned.
 * @warning Other compiled-in defaults are not cut: types 1 to 4 write 1, 2 or 4
 *          bytes and type 6 its whole length, whatever len is. Give the buffer
 *          the size of the item's default at least.
 * @note Logs "DM_RD_MEM ret %d\n" and "hash:%s %s\n" (level 1); "%s def
 *       value:%x not register!\n" (level 3) when no default helps.
 * @note The cache logs as in vexa_dm_rd_from_mem() and vexa_dm_wr_to_mem(), the
 *       version check as in sqlite_chk_db_ver_match(). The default adds, under
 *       vexa_dm_try_read_def_value: "%s def value not found!\n" and "%s def value
 *       is a NULL!\n" (level 0), "ver_match fail,so ignore DefItems data!\n",
 *       "%s def value is %d\n" and "%s def value is %s\n" (level 3). The last two
 *       show the default itself: a secret does not belong into a default.
 */
VEXA_API int32_t vexa_dm_read(struct vexa_dm_handle *handle, int32_t id, uint8_t *buffer, int32_t len);

/**
 * Writes an item: to the backend, then tells the change callback, then the cache.
 *
 * A value equal to what vexa_dm_read() gives is not stored again; the default of an
 * item that holds nothing counts. A default that stands in for a stored value which
 * cannot be delivered (longer, damaged, locked, in a backup that cannot be read, in
 * the primary only) does not. In run-clean state only the cache is written and the
 * callback is not called.
 *
 * @param handle  handle
 * @param id      item id
 * @param data    len bytes; borrowed
 * @param len     bytes, at least 1
 * @return 0 stored, or equal already; -3 NULL handle or data, len < 1, id not
 *         registered; otherwise the backend's result, with cache and callback
 *         untouched
 * @note Logs "Try to write the same data\n" (level 1), "hash:%s %s\n",
 *       "vexa_dm_is_run_clean: %d" and "write cb ret:%d" (level 0, the last two
 *       without a line end), and what vexa_dm_read() logs, which makes the
 *       comparison. When memory for the comparison runs out, the value
 *       is written without it. Holds no lock while the callback runs.
 */
VEXA_API int32_t vexa_dm_write(struct vexa_dm_handle *handle, int32_t id, const void *data, int32_t len);

/**
 * Reads an item from the backend only and puts it into the cache.
 *
 * @param handle  handle
 * @param id      item id
 * @param buffer  at least len bytes; may be changed on failure too
 * @param len     capacity in bytes, at least 1
 * @return 0 the value is in the buffer (its length is not told); 3, a positive
 *         number, for every failure: NULL handle or buffer, len < 1, id not
 *         registered, run-clean state, nothing readable in the backend
 * @note Logs "hash:%s %s\n" (level 1).
 */
VEXA_API int32_t vexa_dm_read_from_dbconfigfile(struct vexa_dm_handle *handle, int32_t id, uint8_t *buffer,
                                                int32_t len);

/**
 * Stores an empty value; in run-clean state in the cache only.
 *
 * @param handle  handle
 * @param id      item id
 * @return 0; -3 NULL handle or id not registered; otherwise the backend's
 *         result, with cache and callback untouched
 * @note Calls the change callback with length 0 after the backend accepted.
 *       Logs "hash:%s %s\n" (level 3).
 */
VEXA_API int32_t vexa_dm_empty(struct vexa_dm_handle *handle, int32_t id);

/**
 * Sets the change callback of the process, replacing the one before.
 *
 * It is called by vexa_dm_write(), vexa_dm_empty() and vexa_dm_write_db() (and
 * so by vexa_dm_write_key_value_pairs()), never in run-clean state.
 *
 * @param callback  stays registered until replaced; cannot be taken away
 * @return 0; -3 for NULL, which leaves the registered one in place
 */
VEXA_API int32_t vexa_dm_reg_event_callback(vexa_dm_event_fn callback);

/**
 * Reads an item from the backend, past cache and defaults.
 *
 * @param handle  handle
 * @param id      item id
 * @param buffer  at least len bytes; may be changed on failure too
 * @param len     capacity in bytes, at least 1
 * @return 0 the value is in the buffer (its length is not told), also in
 *         run-clean state, where the buffer is left as it was; -3 NULL handle
 *         or buffer, len < 1, id not registered, nothing readable
 * @note Logs "hash:%s %s\n" (level 3); "%s def value:%x not register!\n" (level
 *       3) when the backend fails.
 */
VEXA_API int32_t vexa_dm_read_db(struct vexa_dm_handle *handle, int32_t id, char *buffer, int32_t len);

/**
 * Writes an item to the backend, past the cache: vexa_dm_read() of a cached
 * item keeps giving the cached value.
 *
 * A stored value of data and one byte more counts as equal, and so does a stored
 * value that data continues with zero bytes; a value that is longer still cannot
 * be compared and is written over.
 *
 * @param handle  handle
 * @param id      item id
 * @param data    len bytes; borrowed
 * @param len     bytes, at least 1, at most INT32_MAX
 * @return 0 stored, equal already, or run-clean state, in which nothing is
 *         written; -3 NULL handle or data, len 0 or over INT32_MAX, id not
 *         registered; otherwise the backend's result
 * @note Calls the change callback after the backend accepted. Logs "Try to
 *       write the same data\n" (level 1), "hash:%s %s\n" (level 3), and what
 *       vexa_dm_read_db() logs while it compares.
 */
VEXA_API int32_t vexa_dm_write_db(struct vexa_dm_handle *handle, int32_t id, const uint8_t *data,
                                  uint32_t len);

/**
 * Compares a node of the default-item list with an id, in q_linear_search() form.
 *
 * @param node  a queue link followed by a pointer to a vexa_dm_default_item
 * @param id    int32_t
 * @return 1 when the item's id is the id; 0 otherwise, also when either is NULL
 * @note Logs nothing.
 */
VEXA_API uint32_t vexa_dm_compare_id(const void *node, const void *id);

/* ---- Default items ------------------------------------------------------ */

/**
 * Registers an item table. Further tables may follow; they add to it.
 *
 * Of two rows with one id, reads and writes use the last one's table, key and
 * type, defaults use the first one's.
 *
 * @param table  rows up to one with id -1; they stay the caller's, valid and
 *               writable until the process ends. desc.type of each row is set
 *               to its type now and by vexa_dm_construct_def_database(); a read
 *               that asks the stored defaults sets it to the stored type, or to 0
 *               when they have none, and later writes store that type.
 * @return 0, also when the first row's id is -1; -3 for NULL; -4 when the symbol
 *         table could not be opened (logs "oem_dm_def_reg_map_symtab open failed\n"
 *         at level 3). Aborts when memory for a row runs out.
 * @note Takes no lock; not beside any other call of the family.
 */
VEXA_API int32_t vexa_dm_reg_def_items(struct vexa_dm_default_item *table);

/**
 * Stores every registered default in the backend's stored defaults.
 *
 * Failures of single items are not reported.
 *
 * @param type  backend type; any but VEXA_DM_BACKEND_SQLITE aborts when items are registered,
 *              except in run-clean state, where nothing is stored
 * @return 0; -1 when no item is registered, in which case the handle
 *         made for the call is not given back: do not call it in a loop
 * @note Blocks on storage. Logs "tmp_cnt %d!\n" and "tmp_cnt-- %d!\n" (level 0)
 *       with the items registered and left. Takes no lock; not beside writes
 *       of the same items.
 */
VEXA_API int32_t vexa_dm_construct_def_database(uint32_t type);

/**
 * Stores one default through the handle's slot.
 *
 * @param handle  handle
 * @param id      item id; need not be registered
 * @param desc    table, key and type; borrowed
 * @param value   for types 1 to 4 the address of the value, for 5 and 6 the
 *                address of a pointer to it, as in vexa_dm_default_item
 * @param len     bytes of the value
 * @return the slot's result; 0 in run-clean state, with nothing done; -3 NULL argument
 */
VEXA_API int32_t vexa_dm_def_items_write(struct vexa_dm_handle *handle, uint32_t id,
                                         struct vexa_dm_item_desc *desc, const void *value, uint32_t len);

/**
 * Reads one stored default through the handle's slot, which also sets desc->type.
 *
 * @param handle  handle
 * @param id      item id; need not be registered
 * @param desc    table and key; type is written
 * @param buffer  at least len bytes
 * @param len     capacity in bytes
 * @return the slot's result: bytes delivered or a negative backend code; 0 in
 *         run-clean state, with nothing done; -3 NULL argument
 */
VEXA_API int32_t vexa_dm_def_items_read(struct vexa_dm_handle *handle, uint32_t id,
                                        struct vexa_dm_item_desc *desc, uint8_t *buffer, uint32_t len);

/* ---- Memory cache ------------------------------------------------------- */

/**
 * Reads an item from the cache.
 *
 * @param id      item id; need not be registered
 * @param buffer  *length bytes; NULL returns at once
 * @param length  in: capacity; out: bytes delivered, unchanged when the value
 *                was cut to fit, -1 when the id is not cached. NULL returns at once.
 * @note Logs "read_item:%x from_mem fail!\n" (level 3) for an id that is not
 *       cached, "read_item:%x from_mem len %d !!\n" (level 0) otherwise. Blocks
 *       only while another thread stores the same item.
 */
VEXA_API void vexa_dm_rd_from_mem(uint32_t id, uint8_t *buffer, int32_t *length);

/**
 * Stores an item in the cache, where it stays until the process ends.
 *
 * @param id      item id; need not be registered
 * @param data    *length bytes, copied; NULL is refused for a new id only
 *                (level 3, "%s NULL\n") and must not be passed otherwise
 * @param length  bytes, 0 makes an empty value; NULL as data. A negative number
 *                stores nothing.
 * @note Logs " update_len: %d to_mem \n" (level 0) for a known id; for a new one
 *       "dm_update_item_value_to_mem:no item found \n" (level 3) and " add_item: %x
 *       to_mem \n" (level 0). When memory runs out, the value aborts the process
 *       and the entry is left out with "oem_MALLOC fail!\r\n" (level 3).
 */
VEXA_API void vexa_dm_wr_to_mem(uint32_t id, const void *data, const int32_t *length);

/**
 * Stores an item in the cache only.
 *
 * @param id    item id; need not be registered
 * @param data  len bytes, copied
 * @param len   bytes, at least 1
 * @return len; -3 NULL data or len < 1
 * @note Logs what vexa_dm_wr_to_mem() logs.
 */
VEXA_API int32_t vexa_dm_cache_write(uint32_t id, const char *data, int32_t len);

/**
 * Reads an item from the cache only.
 *
 * @param id      item id; need not be registered
 * @param buffer  at least len bytes
 * @param len     capacity in bytes, at least 1
 * @return bytes of the value, or len when it was cut to fit; -1 not cached; -3
 *         NULL buffer or len < 1
 * @note Logs what vexa_dm_rd_from_mem() logs.
 */
VEXA_API int32_t vexa_dm_cache_read(uint32_t id, uint8_t *buffer, int32_t len);

/* ---- Key-value text ----------------------------------------------------- */

/**
 * Sets one pair in an item that holds a text "key1,value1;key2,value2;".
 *
 * The pair keeps its place when the key is found, else it goes to the end. The
 * key is searched as plain text "key," so a key that ends another one, or that
 * ends a value before a comma, is found there too. The item needs a stored
 * value or a default. An empty text is a default only until it is stored: from
 * vexa_dm_construct_def_database() on it reads -1 while the schema versions
 * match, and no first pair can be written.
 *
 * @param handle      handle
 * @param id          item id
 * @param key         terminated, not empty, without "," and ";"
 * @param value       the same; key and value together at most
 *                    VEXA_DM_KEY_VALUE_PAIR_MAX bytes
 * @param new_length  receives the length of the text that is written, in bytes;
 *                    untouched when it does not come to a write
 * @return 0; 3 a key or value is empty or both are too long together ("length of
 *         key or value error\n"), or the text that is there, with the pair
 *         that would be replaced, and the new pair are together longer than
 *         DM_MAX_KEY_VALUE_STRLEN ("ERROR: the length of db str out of
 *         DM_MAX_KEY_VALUE_STRLEN\n"), so that a replacement by something
 *         shorter can be refused too; -3 NULL key, value or new_length; a negative
 *         result of vexa_dm_read() ("read db failed\n"), -3 also when memory
 *         runs out; a non-zero result of vexa_dm_write() ("write db failed\n")
 * @warning A text of exactly DM_MAX_KEY_VALUE_STRLEN bytes is stored without its last ";".
 * @note Reading and writing is not one step: pairs of one item must be set by
 *       one thread, of one process, at a time. Logs "write key: %s, value: %s\n"
 *       and "final str, write to db: %s\n" (level 0), failures at level 3.
 */
VEXA_API int32_t vexa_dm_write_key_value_pairs(struct vexa_dm_handle *handle, uint32_t id, const char *key,
                                               const char *value, int32_t *new_length);

/**
 * Splits an item that holds a text "key1,value1;key2,value2;" into rows.
 *
 * A pair without a comma gives an empty value. An empty pair ends the text.
 *
 * @param handle  handle
 * @param id      item id
 * @param keys    rows for all pairs of the text; receives terminated keys
 * @param values  the same for values
 * @param count   receives the number of pairs; 0 when the item cannot be read
 * @return 0; -3 NULL keys, values or count (nothing is touched); a negative
 *         result of vexa_dm_read() ("read db failed\n"), -3 also when memory runs out
 * @warning Neither rows nor their width are bounded: a text written by
 *          vexa_dm_write_key_value_pairs() has at most 256 pairs, but a key or
 *          value of 256 bytes or more runs into the rows behind it. Only the
 *          caller knows what it stored; a text from elsewhere needs rows to spare.
 * @note Logs "read from db: %s\n", "key: %s, value: %s\n" and "key-value pairs
 *       num: %d\n" (level 0).
 */
VEXA_API int32_t vexa_dm_read_key_value_pairs(struct vexa_dm_handle *handle, uint32_t id,
                                              char keys[][VEXA_DM_KEY_VALUE_ROW_SIZE],
                                              char values[][VEXA_DM_KEY_VALUE_ROW_SIZE], int32_t *count);

/* ---- Clean and checksum ------------------------------------------------- */

/**
 * Puts the process into run-clean state, for good, and lets the backend delete its files.
 *
 * In run-clean state reads come from cache or defaults and writes reach the
 * cache only. The state begins before the backend does.
 *
 * @param handle  handle; NULL, or one without a clean slot, does nothing
 * @param backup  not NULL asks for a dated copy first; handed to the slot
 * @return the slot's result, see dm_sqlite_clean(); 0 when nothing was done,
 *         also on any call after the first
 * @note Two threads that call it at once may both reach the backend. Blocks on
 *       storage and shell commands. Logs nothing itself.
 */
VEXA_API uint32_t vexa_dm_clean(struct vexa_dm_handle *handle, char *backup);

/**
 * CRC-32, polynomial 0x04C11DB7, most significant bit first, no final inversion.
 *
 * The second argument counts bits. The backend passes a value's byte count
 * there, so a stored checksum guards an eighth of the value; stored files
 * depend on it.
 *
 * @param data     (bits + 7) / 8 bytes
 * @param bits     bits to cover. Of 65536 and more, whole bytes are counted
 *                 modulo 8192 (none counts as 8192), then the odd bits follow.
 * @param initial  checksum to go on from; 0 to start
 * @return the checksum, as signed number; initial for 0 bits; -1 for NULL data
 * @note Touches nothing else. Thread-safe. Logs nothing.
 */
VEXA_API int32_t vexa_dm_Crc32Calc(const uint8_t *data, uint32_t bits, uint32_t initial);

/** Entry i is the checksum of the byte i, from 0 on. */
VEXA_DATA const uint32_t vexa_dm_crc32_table[256];

VEXA_END_DECLS

#endif
