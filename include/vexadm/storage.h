/* SPDX-License-Identifier: MIT */
/**
 * @file storage.h
 * The SQLite storage backend of the data manager.
 *
 * Most programs use data_manager.h and never call this family: it is what the
 * data manager's slots reach, and what tools call that look at files directly.
 *
 * Files (docs/storage.md describes each byte): the primary item database
 * DB_CONFIG, its whole-file backup DB_CONFIGBAK, the write-state journal
 * DB_STATE, the default values DB_DEF_ITEMS, the export DB_EXPORT_CSV.
 *
 * Result codes shared by the family:
 *
 * | code | meaning                                                             |
 * |------|---------------------------------------------------------------------|
 * |    0 | success                                                             |
 * |  > 0 | bytes of the value that a read copied                               |
 * |   -1 | NULL or negative argument; no such row; empty value; table not made;|
 * |      | a row that could not be stepped to (damage, a lock)                 |
 * |   -3 | dm_pal_read_by_key() called with a NULL argument                    |
 * | -100 | statement not prepared: no such table or column, or a corruption    |
 * |      | that one repair did not cure                                        |
 * | -101 | database file not opened                                            |
 * | -102 | the stored CRC does not match the value, or the read gave no bytes  |
 *
 * Blocking: every function does file input and output. Where another process
 * holds a lock on a file, a call waits for it; all waits of one outermost call
 * (its statements, health check and file copies together) share one budget of
 * VEXA_STORAGE_BUSY_MS from the first wait on. After that the documented code
 * comes back. A power cut at any moment leaves the last acknowledged value
 * readable (docs/caveats.md names the exceptions).
 *
 * Threads: "locks" below means the process-wide backend mutex, which is not
 * recursive. Functions that do not take it must not run beside item reads,
 * writes or cleans of the same process unless the caller serialises them.
 *
 * Files of other processes: database files are locked by SQLite's own POSIX
 * locks. Never open one of them with open() or fopen() in a process that uses
 * this library: closing the descriptor drops all its locks.
 */
#ifndef VEXADM_STORAGE_H
#define VEXADM_STORAGE_H

#include <stdio.h>

#include "types.h"

struct sqlite3;

VEXA_BEGIN_DECLS

/** Milliseconds that one outermost call waits in all for locks of other processes. */
#define VEXA_STORAGE_BUSY_MS 3000

/** Most characters of a store-area directory, its trailing slash included. */
#define VEXA_STORE_AREA_MAX 50

/** Schema version of this build. */
#define VEXA_SCHEMA_VERSION 0x00010001u

/** States of a write in the journal. */
enum vexa_write_state {
  WS_READY = 100,      /**< begun; the primary may or may not hold the new value */
  WS_WRITE_DONE = 101, /**< primary written, copy to the backup attempted */
  WS_BACKUP_DONE = 102 /**< complete */
};

/* ---- Paths -------------------------------------------------------------- */

/*
 * Terminated texts. Read afresh by each operation; change them through
 * sqlite_reg_store_area() before the first access, never while a call runs.
 */

VEXA_DATA char DB_CONFIG[64];     /**< primary item database, "/data/config.db" */
VEXA_DATA char DB_CONFIGBAK[64];  /**< backup item database, "/data/configbak.db" */
VEXA_DATA char DB_STATE[64];      /**< write-state journal, "/data/state.db" */
VEXA_DATA char DB_DEF_ITEMS[64];  /**< default values, "/data/DefItems.db" */
VEXA_DATA char DB_EXPORT_CSV[64]; /**< CSV export, "/data/ExportCSV.csv" */
VEXA_DATA char db_area[50];       /**< store-area directory of a fresh process, "/data/" */
VEXA_DATA char db_rst_bak[64];    /**< directory of dated backups, "/mnt/vendor/nvdata/" */

/* ---- Registration ------------------------------------------------------- */

/**
 * Fills a handle's seven slots with the functions of this family and, on the
 * first call of the process, looks at the stored schema version: equal to this
 * build's, an interrupted write is finished (dm_sqlite_check_database()); no
 * version table, the version record is written; otherwise only logged.
 *
 * @param slots  operation table of a handle; borrowed for the call; not NULL
 * @note Never fails: every outcome is logged (level 0; failures below it at
 *       level 3). The first call locks and may block on storage. Later calls
 *       fill the slots without the lock and touch no file. The first call of a
 *       process must return before other threads use the backend.
 */
VEXA_API void sqlite_reg(struct vexa_dm_backend_ops *slots);

/**
 * Moves primary and journal to one directory and the backup to another.
 *
 * @param primary_dir  terminated directory, ending in "/", at most
 *                     VEXA_STORE_AREA_MAX characters; NULL leaves primary and
 *                     journal where they are
 * @param backup_dir   the same for the backup
 * @return 0 when done; otherwise the length of the directory that was refused.
 *         A refused primary_dir changes nothing; a refused backup_dir leaves
 *         primary and journal moved.
 * @note Defaults, export and dated backups never move. Creates nothing. Call it
 *       before the first database access; not thread-safe. Logs nothing.
 */
VEXA_API uintptr_t sqlite_reg_store_area(const char *primary_dir, const char *backup_dir);

/** @return 0 when primary and backup both exist (logs at level 2), else (uint32_t)-1. Takes no lock. */
VEXA_API uint32_t dm_pal_check_db_exist(void);

/** Items cannot be deleted in this backend. @return 0, having done nothing. */
VEXA_API uint32_t dm_pal_delete(void);

/* ---- Slot operations ---------------------------------------------------- */

/**
 * Stores an item (slot write): dm_pal_write() under the backend mutex.
 *
 * @param id      item id, kept beside the value
 * @param desc    table, key, type; borrowed
 * @param data    length bytes; borrowed
 * @param length  bytes, 0 stores an empty value
 * @return 0 stored (also where only the row failed, see dm_write_db());
 *         -1 NULL or negative argument, primary not opened or table not made
 * @note Logs "tab:%s, key:%s \n" at level 0. Locks; blocks until the value,
 *       its backup and the journal are on storage.
 */
VEXA_API int32_t dm_sqlite_write(uint32_t id, const struct vexa_dm_item_desc *desc, const void *data,
                                 int32_t length);

/**
 * Reads an item (slot read): dm_pal_read() under the backend mutex.
 *
 * @param id      not used
 * @param desc    table and key; borrowed
 * @param buffer  length bytes; may hold bytes of a failed read afterwards
 * @param length  capacity of buffer in bytes
 * @return as dm_pal_read(); -1 also for a NULL descriptor
 * @note Logs "tab:%s, key:%s \n" at level 0. Locks.
 */
VEXA_API int32_t dm_sqlite_read(uint32_t id, const struct vexa_dm_item_desc *desc, uint8_t *buffer,
                                int32_t length);

/**
 * Deletes primary, backup and journal (slot clean), after a dated copy of the
 * primary on request. Three dated copies are kept, .db1 the oldest;
 * where a fourth file lies among them, four.
 *
 * @param backup  not NULL: make a dated copy first; the text is not looked at
 * @return 0 done; (uint32_t)-1 a shell command could not be started, or a file
 *         could not be deleted or was not there: the sequence stops at it,
 *         later files stay
 * @note Stored defaults stay. Locks from after its first command on. Runs
 *       find, rm, mv, cp and date through the shell; their exit codes are not
 *       looked at, so a full backup directory loses the copy, not the clean.
 *       Logs "unlink error: %s\n", "unlink bak error: %s\n" and "unlink state
 *       error: %s\n" at level 3.
 * @warning When the first command cannot be started, the mutex is unlocked
 *       without having been locked: do not run a clean beside other calls.
 */
VEXA_API uint32_t dm_sqlite_clean(char *backup);

/**
 * Stores one default value (slot def_db_const). Takes no lock.
 *
 * @param id      not used
 * @param desc    table, key and type; the type says what value points to:
 *                1 to 4 the bytes themselves, 5 a pointer to a terminated text
 *                (length is not used), 6 a pointer to length bytes
 * @param value   borrowed; not NULL
 * @param length  bytes for types 1 to 4 and 6
 * @return of dm_write_def_db(); (uint32_t)-1 for a NULL descriptor, a NULL
 *         value, or a type that carries no value. The first call of a process
 *         also stores the schema version and returns that write's result
 *         instead of its own.
 */
VEXA_API uint32_t dm_sqlite_def_db_const(uint32_t id, struct vexa_dm_item_desc *desc, const void *value,
                                         uint32_t length);

/**
 * Reads one stored default (slot def_db_read) and stores its type into the
 * descriptor (0 when nothing was read). Takes no lock.
 *
 * @param id  not used
 * @param desc    table and key; its type is written
 * @param buffer  length bytes; a longer value is cut
 * @param length  capacity of buffer in bytes
 * @return as dm_read_def_db(); -1 also for a NULL descriptor
 */
VEXA_API int32_t dm_sqlite_def_db_read(uint32_t id, struct vexa_dm_item_desc *desc, uint8_t *buffer,
                                       int32_t length);

/**
 * Reads the schema version of the item databases (slot read_cfg_db_version).
 *
 * @param out  4 bytes, receives the version in host byte order
 * @return as dm_pal_read(), as unsigned number; (uint32_t)-1 for a NULL out
 * @note Locks.
 */
VEXA_API uint32_t dm_sqlite_read_CfgDB_version(uint8_t *out);

/**
 * Reads the schema version of the stored defaults (slot read_def_items_db_version).
 *
 * @param out  4 bytes, receives the version in host byte order
 * @return as dm_read_def_db(), as unsigned number; (uint32_t)-1 for a NULL out
 * @note Locks.
 */
VEXA_API uint32_t dm_sqlite_read_DefItemsDB_version(uint8_t *out);

/* ---- Schema version ----------------------------------------------------- */

/**
 * Tells whether item databases and stored defaults both carry this build's version.
 *
 * @param matched  receives 1 or 0; untouched when either version cannot be
 *                 read; NULL makes the call return at once
 * @note Locks. Logs at level 3 " sqlite_chk_db_ver_matched \n" or " sqlite_chk_db_ver_not_matched \n",
 *       or "tmp_sqlite_ver read fail\n" / "tmp_DefItems_db_ver read fail\n".
 */
VEXA_API void sqlite_chk_db_ver_match(uint8_t *matched);

/* ---- Item tables -------------------------------------------------------- */

/**
 * Reads a value by table and key, as dm_pal_read(), without the backend mutex.
 *
 * @param table   SQL table
 * @param key     key of the row
 * @param buffer  length bytes; may hold bytes of a failed read afterwards
 * @param length  capacity of buffer in bytes
 * @return as dm_pal_read(); -3 when table, key or buffer is NULL (logs
 *         "%s param NULL\n" at level 3)
 */
VEXA_API int32_t dm_pal_read_by_key(const char *table, const char *key, uint8_t *buffer, int32_t length);

/**
 * Reads a value: first from the primary, which finds and repairs a corrupt
 * primary, then from the backup, whose bytes are the answer.
 *
 * @param table   SQL table
 * @param key     key of the row
 * @param buffer  length bytes; may hold bytes of a failed read afterwards
 * @param length  capacity; a value that does not fit fails its CRC (-102)
 * @return bytes copied (> 0); -1, -100, -101, -102 (see the top of this file)
 * @note Takes no lock.
 */
VEXA_API int32_t dm_pal_read(const char *table, const char *key, uint8_t *buffer, int32_t length);

/**
 * Stores a value in primary and backup, with the journal around it.
 *
 * Steps: journal WS_READY, primary, quick check of the primary, durable atomic
 * copy of the primary over the backup, journal WS_WRITE_DONE, WS_BACKUP_DONE.
 * When it returns 0, the row was written and the backup was refreshed, the
 * value survives a power cut. Where the whole file cannot be copied, the record
 * alone goes into the backup. A primary that fails its check, or a backup that
 * cannot be written at all (a lock held for longer than the budget), leaves the
 * previous value readable until a later write succeeds; the log tells, the latter
 * by "%s keeps the previous value of %s %s\n" at level 3.
 *
 * @param table, id, key, type  the row; table and key unescaped SQL text
 * @param data    length bytes; borrowed
 * @param length  bytes, 0 stores an empty value
 * @return 0; -1 NULL or negative argument, primary not opened, table not made.
 *         Failures of the journal are logged only.
 * @note Takes no lock.
 */
VEXA_API int32_t dm_pal_write(const char *table, uint32_t id, const char *key, int32_t type, const void *data,
                              int32_t length);

/**
 * Reads a value from one database file.
 *
 * A statement that cannot be prepared because of corruption (SQLite code 11)
 * repairs DB_CONFIG once, from DB_CONFIGBAK or else from the factory copy
 * "/vexanvbak/data/config.db", and reads again.
 *
 * @param path    database file; created empty by SQLite when missing
 * @param table   SQL table
 * @param key     key of the row
 * @param buffer  length bytes
 * @param crc     receives the stored CRC; not NULL
 * @param length  capacity of buffer; a longer value is cut
 * @return bytes copied (> 0); -1 NULL or negative argument, no such row or
 *         empty value; -100; -101
 * @note Takes no lock.
 */
VEXA_API int32_t dm_read_db(const char *path, const char *table, const char *key, uint8_t *buffer,
                            uint32_t *crc, int32_t length);

/**
 * Stores a value in one database file, making table and row as needed.
 *
 * @param path    database file; created by SQLite when missing
 * @param table   SQL table
 * @param id      item id, kept beside the value
 * @param key     key of the row
 * @param type    value type, kept beside the value
 * @param data    length bytes; borrowed
 * @param length  bytes, 0 stores an empty value
 * @return 0 once the table exists, even when the row could not be written (the
 *         failure is logged at level 3, so that backup and journal steps
 *         follow); -1 NULL or negative argument, or table not made; -101
 * @note A corrupt file is repaired once, as in dm_read_db(). Takes no lock.
 */
VEXA_API int32_t dm_write_db(const char *path, const char *table, uint32_t id, const char *key, int32_t type,
                             const void *data, int32_t length);

/**
 * @param db  open database
 * @param table  SQL table
 * @param key    key of the row
 * @return 1 when the table holds a row of that key; 0 otherwise, also on an
 *         error, which is logged at level 3
 */
VEXA_API int32_t dm_record_exist(struct sqlite3 *db, const char *table, const char *key);

/**
 * Adds the columns id and type to a table of an older build, where missing.
 *
 * @param db  open database
 * @param table  SQL table
 * @param key    a key, by which the columns are asked for; its row need not be there
 * @return 0 both columns are there; -1 NULL argument (logs "argv NULL\n") or a
 *         failure of another kind
 */
VEXA_API int32_t alter_table_add_column(struct sqlite3 *db, const char *table, const char *key);

/* ---- Write-state journal ------------------------------------------------ */

/**
 * Records how far a write has come.
 *
 * A journal that refuses its update for any reason but a missing column is
 * deleted and made anew, empty.
 *
 * @param item_table  table of the item that is being written
 * @param id          its id
 * @param item_key    its key
 * @param type        its value type
 * @param len         bytes of its value
 * @param state  a vexa_write_state
 * @return 0 stored; -1 NULL table or key, or a failure (logged at level 3)
 * @note Takes no lock.
 */
VEXA_API int32_t dm_write_state_db(const char *item_table, uint32_t id, const char *item_key, int32_t type,
                                   int32_t len, int32_t state);

/**
 * Reads the journal's row.
 *
 * @param item_table  33 bytes; receives the table, or "" when it is longer than 32 characters
 * @param item_key    33 bytes; the same for the key
 * @param id, type, len, state  receive the columns; a NULL column counts as 0
 * @return 0; SQLite's code when the file cannot be opened; -1 NULL argument, no table, no row, or
 *         any other failure of the select
 * @note Makes a file that is missing, empty, and adds columns that an older build's table
 *       lacks. Outputs are untouched on failure. Takes no lock. Logs the row at level 0.
 */
VEXA_API int32_t dm_read_state_db(char *item_table, char *item_key, int32_t *id, int32_t *type, int32_t *len,
                                  int32_t *state);

/**
 * Finishes an interrupted write: a journal at WS_WRITE_DONE makes the record it
 * names go from primary to backup. A journal at WS_READY is not acted on, as
 * the backup still holds the previous, whole value.
 *
 * @return 0 nothing to do, or the copy was tried (what fails is logged); -1 nothing to finish; -1, -100,
 *         -101 from reading the primary; -102 the primary's record fails its
 *         CRC; SQLite's code when the journal cannot be opened. All as unsigned.
 * @note The journal stays as it is. Takes no lock; sqlite_reg() calls it with the mutex held.
 */
VEXA_API uint32_t dm_sqlite_check_database(void);

/* ---- Health ------------------------------------------------------------- */

/**
 * Opens a database read-only and runs SQLite's quick check on it.
 *
 * Changes nothing, with one exception: where a writer was killed, its rollback
 * journal is applied first, as any reader with write access would do it.
 *
 * @param path  database file; never created
 * @return 0 healthy; 1 corrupt; (uint32_t)-1 not opened for another reason
 *         (a missing file too) or a NULL path; (uint32_t)-2 the check failed
 *         for another reason (not a database)
 * @note Logs "is_corrupted=%d\n" last: at level 0 after a check that came to its
 *       end, even when the verdict is 1; at level 3 when it could not be opened or
 *       checked. Takes no lock.
 */
VEXA_API uint32_t check_database_health(const char *path);

/**
 * Row callback of the quick check, in sqlite3_exec() form.
 *
 * @param flag    uint32_t that receives 1 when the row holds anything but "ok", else 0
 * @param count   columns
 * @param values  count texts, NULL for SQL NULL
 * @param names   not used
 * @return 0
 */
VEXA_API int integrity_check_callback(void *flag, int count, char **values, char **names);

/* ---- Default-items database --------------------------------------------- */

/**
 * Stores a default in DB_DEF_ITEMS.
 *
 * @param table   SQL table
 * @param key     key of the row
 * @param type    value type, kept beside the value
 * @param value  length bytes; borrowed
 * @param length  bytes
 * @return 0 once the table exists, even when the row failed (logged); -1
 *         negative length (logs "%s param invald\n"), NULL argument, or table
 *         not made; -101
 */
VEXA_API int32_t dm_write_def_db(const char *table, const char *key, int32_t type, const void *value,
                                 int32_t length);

/**
 * Reads a default from DB_DEF_ITEMS. No CRC guards it.
 *
 * @param table   SQL table
 * @param key     key of the row
 * @param type    receives the stored type; not NULL
 * @param buffer  length bytes; a longer value is cut
 * @param length  capacity of buffer in bytes
 * @return bytes copied (> 0); -1 NULL or negative argument, no row, empty value; -100; -101
 */
VEXA_API int32_t dm_read_def_db(const char *table, const char *key, int32_t *type, uint8_t *buffer,
                                int32_t length);

/* ---- Commands and export ------------------------------------------------ */

/**
 * Runs a shell command and captures the start of its output.
 *
 * @param command  terminated; handed to the shell as it stands
 * @param out      out_len bytes that the caller has zeroed; not terminated here;
 *                 NULL reads nothing
 * @param out_len  capacity of out in bytes
 * @return 0 when the command was started, whatever its exit code;
 *         (uint32_t)-1 NULL command or start failed (logged at level 3)
 * @note Blocks until the command ends. Takes no lock.
 */
VEXA_API uint32_t dm_sqlite_system_cmd(const char *command, char *out, uint32_t out_len);

/**
 * Writes all tables of a database to DB_EXPORT_CSV, replacing it. Lines end in
 * CR, LF and NUL.
 *
 * @param path  database file
 * @return 0 done (also when reading the schema failed, which is printed on
 *         standard error); (uint32_t)-1 NULL path; (uint32_t)-101 not opened;
 *         4 the CSV file could not be opened
 * @note Takes no lock. Prints "Operation done successfully\n" on standard output.
 */
VEXA_API uint32_t dm_read_all_tabs_from_db(const char *path);

/**
 * Appends one table's rows to a CSV stream.
 *
 * key only when at most 31 bytes, len and type only when at most 4 characters, a sign included;
 * value as text for type 5, else its first 4 bytes as a signed number.
 *
 * @param db    open database
 * @param table  SQL table
 * @param file  open stream, borrowed
 */
VEXA_API void dm_export_by_table(struct sqlite3 *db, const char *table, FILE *file);

/**
 * Per-table callback of the export, in sqlite3_exec() form.
 *
 * @param db      the open database
 * @param count   columns
 * @param values  table names
 * @param names   column names
 * @return 0; 4 when DB_EXPORT_CSV cannot be opened, which ends the enumeration
 */
VEXA_API int dm_sqlite_db2csv_cb(void *db, int count, char **values, char **names);

VEXA_END_DECLS

#endif
