/* SPDX-License-Identifier: MIT */
/**
 * @file param_db.h
 * Typed parameters kept as columns of tables in a SQLite database.
 *
 * A second, simpler store beside the data manager. A table has one row, a
 * parameter is a column of it. There are two databases:
 *
 *     /data/vexa-resource/sqlite3/user_info.db     the user database: present values
 *     /data/vexa-resource/sqlite3/factory_info.db  the factory database: where
 *                                                  vexa_db_reload_value() takes
 *                                                  values from
 *
 * The directory and the tables are the host's to make. A missing user database is
 * created empty by the first operation; it is not copied from the factory one
 * (see vexa_db_restore_factory()).
 *
 * The host describes its variables in a parameter table:
 *
 *     static uint8_t enabled;
 *     static char ssid[33];
 *     static struct vexa_db_param params[] = {
 *         {&enabled, "enabled", VEXA_DB_U8, sizeof enabled, 1},
 *         {ssid, "ssid", VEXA_DB_TEXT, sizeof ssid, 2},
 *         {NULL, NULL, 0, 0, 0},
 *     };
 *     static struct vexa_db_table wifi = {"wifi", params};
 *
 * SQL. Statements are built in 256 bytes from the names and texts as they are;
 * nothing is quoted or escaped. Table and column names must be SQL identifiers,
 * and a text must not hold a double quote: those are the caller's duty, so no text
 * that a user typed goes in unchecked. A longer statement is cut and handed to
 * SQLite as far as it goes. A text that is cut loses its closing quote, and SQLite
 * refuses the statement; where the names alone fill the 255 characters, another
 * number could be written or another column read, so keep table and column names
 * below 100 characters each. A text then has about
 * 255 - 20 - table - column characters. Texts are written in double quotes, which
 * SQLite takes for the name of a column where the table has one of that name, and
 * for a text otherwise; a SQLite built without that rule (SQLITE_DBCONFIG_DQS_DML)
 * refuses them.
 *
 * Numbers are read with strtol(), texts of type 5 with strtoll(), base 10: what is
 * no number gives 0, a number too wide for a long gives the widest long, and a NULL
 * cell gives 0. Unsigned words are written as signed ones (4294967295 as -1) and
 * read back as they were. A 64-bit number is written as an unsigned one: one below
 * 0 becomes 18446744073709551615 or the like, which SQLite keeps as a rounded
 * fraction ("1.84467440737096e+19") and a read gives as 1. Keep those at 0 or above.
 *
 * Connections are kept between calls: one at most, to either database. Each
 * operation on the user database closes its own when it succeeds; after a failure
 * it stays open, until the next success, vexa_db_close_sqlite(), or an operation
 * on the factory database. A connection to the factory database stays open until
 * the next operation on the user database. Do not fork while one is open and use
 * this family in the child. A connection that stays open stays with its file: where
 * the user database's file is replaced after a failure, the next operations read the
 * old file or fail ("attempt to write a readonly database"). Call
 * vexa_db_close_sqlite() before or after the replacing. A factory database that was
 * replaced is seen after the next operation on the user database.
 *
 * Threads: one mutex of the process serialises all functions but
 * vexa_db_exec_cmd(). They block for as long as storage and the mutex let them
 * wait; a lock that another process holds on a database is not waited for but
 * fails the statement ("database is locked").
 *
 * Every failure is logged at level 3, under the function that is named with it or
 * else the function's own name. Below all operations lie
 *
 *     open_sqlite_db      "Error, db:%s couldn't access.\n" (path) for a user database
 *                         that is missing, and for the factory database when it is
 *                         missing too: then nothing is opened. "Error, db:%s open
 *                         failed:%s.\n" (path, SQLite's reason)
 *     vexa_system_call    "System call length mismatch: %d != %d\n" when only the user
 *                         database is missing: the copy that is not made
 *     update_item_to_db   "Error, db:%s open_sqlite_db return faild.\n" (user path), or
 *                         the pair of lines of a failed statement; at level 0
 *                         "sqlite3_exec sql_cmd:[%s].\n" after each run
 *     search_by_table     "Error, open_sqlite_db return faild.\n", or that pair
 *
 * with the pair "Error, sqlite3_get_table run faild, sql_cmd:[%s], db err:[%s].\n"
 * (whichever of SQLite's functions ran it) and, where SQLite gave a text, "Error,
 * sql_cmd err info:[%s].\n".
 */
#ifndef VEXADM_PARAM_DB_H
#define VEXADM_PARAM_DB_H

#include "export.h"

VEXA_BEGIN_DECLS

/**
 * Parameter types. Not every function takes every type:
 *
 *     type  variable   init_struct,   get_value  update_db_     update_value
 *                      reload_value              from_struct
 *     0, 1  uint8_t    yes, low byte  yes        yes            yes
 *     2, 7  uint32_t   yes            yes        yes            yes
 *     3     uint16_t   yes, low two   no         no             no
 *     4     uint32_t   no             yes        yes            no
 *     5     int64_t    yes            yes        yes            yes
 *     6     text       yes            yes        yes            yes
 *
 * "no", and any other type: "Error, param_type:%d \n" is logged at level 3, and the
 * parameter is left out as each function says.
 */
enum vexa_db_type {
  VEXA_DB_U8 = 0,           /**< one byte */
  VEXA_DB_U8_ALT = 1,       /**< one byte */
  VEXA_DB_U32 = 2,          /**< 32 bits */
  VEXA_DB_U16 = 3,          /**< 16 bits, of which vexa_db_reload_value() alone writes the column */
  VEXA_DB_U32_UNLOADED = 4, /**< 32 bits, which are not loaded, nor taken by vexa_db_update_value() */
  VEXA_DB_64 = 5,           /**< 64 bits */
  VEXA_DB_TEXT = 6,         /**< terminated text */
  VEXA_DB_U32_ALT = 7       /**< 32 bits */
};

/** Which database vexa_db_exec_cmd() works on. */
enum vexa_db_which {
  VEXA_DB_USER = 0,   /**< present values */
  VEXA_DB_FACTORY = 1 /**< factory values */
};

/** One parameter. */
struct vexa_db_param {
  void *value;      /**< the host's variable, of the type's width; must outlive the record. Not
                         looked at, so that it may be NULL, by a function that does not take
                         the type */
  const char *key;  /**< column name, terminated; NULL ends the array */
  uint32_t type;    /**< enum vexa_db_type */
  uint32_t size;    /**< of a text: capacity of the variable in bytes, terminator included. 0: it
                         is not loaded, and written up to its terminator */
  int32_t param_id; /**< the host's number, by which single records are chosen; not -1 */
};
typedef struct vexa_db_param vexa_db_param;

/** The parameters of one table. */
struct vexa_db_table {
  const char *name;            /**< table name, terminated */
  const vexa_db_param *params; /**< array, ended by a record whose key is NULL */
};
typedef struct vexa_db_table vexa_db_table;

/**
 * Takes one row, in the form that sqlite3_exec() has.
 *
 * @param argument  what vexa_db_exec_cmd() was given
 * @param columns   how many values and names there are
 * @param values    texts, borrowed for the call; NULL for a cell that is NULL
 * @param names     column names, borrowed for the call
 * @return 0 to go on; anything else ends the statement, which then failed
 */
typedef int (*vexa_db_row_fn)(void *argument, int columns, char **values, char **names);

/**
 * Loads all parameters of a table from the user database into the host's variables.
 *
 * @param table  parameter table
 * @retval 0 loaded; also when the first record has a NULL key. Records of a type
 *           that is not loaded keep their variable
 * @retval 1 table, its name or its array is NULL ("Error, tbl_name is null. \n"); a
 *           record has no variable for a type that is loaded ("Error, key:%s has no
 *           variable.\n"); a query failed or found no row ("Error, db:%s
 *           search_by_table return failed. sql_cmd:%s\n", user path). Records before
 *           that one are loaded
 * @note A text is cleared over its size, and takes size - 1 bytes; of a NULL cell it
 *       is empty, and vexa_string_memcpy() logs "Invalid string parameter.\n". With a
 *       size of 0 nothing is written. The first row counts where there are more.
 * @note Logs at level 0, for each record, "rc:%d, search_by_table sql_cmd:%s\n" and
 *       "rc:%d,  search_by_table azResult:%p, nrow:%d\n", rc being 0.
 */
VEXA_API uint32_t vexa_db_query_db_init_struct(const vexa_db_table *table);

/**
 * Writes the host's variables into the user database, then waits for all file
 * systems to be written back (sync()).
 *
 * @param table     parameter table
 * @param param_id  number of the records to write; -1: all
 * @retval 0 written; also when no record has the number or the first one has a NULL
 *           key: nothing is written then, and sync() called. Records of a type that is
 *           not written are left out
 * @retval 1 table, its name or its array is NULL ("Error, tbl_name is null. \n"; no
 *           sync()); a record has no variable for a type that is written ("Error,
 *           key:%s has no variable.\n"); a statement failed ("Error, tbl_name:%s update
 *           key:[%s] failed.\n"). Records before that one are written
 * @note Of a text, at most size bytes are read. A size of 0 sets no bound: the text
 *       must be terminated. Each row of the table is written.
 */
VEXA_API uint32_t vexa_db_update_db_from_struct(const vexa_db_table *table, int32_t param_id);

/**
 * Takes the value of a parameter from the factory database, into the host's
 * variable and into the user database.
 *
 * @param table     parameter table
 * @param param_id  number of the record; -1 is a number like any other
 * @retval 0 reloaded
 * @retval 1 table, its name or its array is NULL ("Error, tbl_name is null. \n"); no
 *           record has the number, as in an array whose first record has a NULL key
 *           ("Error, PARAM TYPE SETING ERROR.\n"); a record has no variable for a type
 *           that is loaded ("Error, key:%s has no variable.\n"); a factory query failed
 *           or found no row ("Error, db:%s search_by_table return failed.\n", factory
 *           path, under __vexa_db_get_factory_value): nothing is written; the user
 *           database could not be written: the variables are loaded
 * @note Where several records have the number all variables are loaded, but only the
 *       last one's value is written to the user database.
 * @note The factory's text is written in double quotes, whatever the type; that of
 *       a NULL cell is empty. A type that is not loaded is written all the same.
 * @note Logs at level 0 "id = %d,i = %d,param_table[i].param_id= %d\n" for each
 *       record, and "tbl_name = %s,key = %s\n" for each that has the number.
 */
VEXA_API uint32_t vexa_db_reload_value(const vexa_db_table *table, int32_t param_id);

/**
 * Reads one value from the user database.
 *
 * @param table   table name
 * @param column  column name
 * @param out     receives the value
 * @param type    enum vexa_db_type
 * @param size    of a text: capacity of out in bytes, as in a parameter record
 * @retval 0 read; also for a type that is not read, which leaves out as it was
 * @retval 1 table is NULL ("Error, tbl_name is null. \n"); column or out is NULL
 *           ("Error, column or value is null. \n"); the query failed or found no row
 *           ("Error, db:%s search_by_table return failed.\n", user path)
 */
VEXA_API uint32_t vexa_db_get_value(const char *table, const char *column, void *out, uint32_t type,
                                    uint32_t size);

/**
 * Writes one value into the user database.
 *
 * @param table   table name
 * @param column  column name
 * @param value   the value, of the type's width; a text is terminated
 * @param type    enum vexa_db_type
 * @retval 0 written
 * @retval 1 table is NULL ("Error, tbl_name is null. \n"); column or value is NULL
 *           ("Error, column or value is null. \n"); a type that is not written
 *           ("Error, param_type:%d \n" and "Error, PARAM TYPE SETING ERROR.\n"); the
 *           statement failed
 */
VEXA_API uint32_t vexa_db_update_value(const char *table, const char *column, const void *value,
                                       uint32_t type);

/**
 * Runs SQL of the host's own.
 *
 * @param sql       statements
 * @param callback  called for each row; may be NULL
 * @param argument  handed to callback
 * @param which     enum vexa_db_which; any other number opens nothing
 * @retval 0 ran
 * @retval 1 sql is NULL ("Error, sql_cmd is null. \n"); the database could not be
 *           opened ("Error, db:%s open_sqlite_db return faild.\n", the user path
 *           whichever it was); SQLite or the callback refused (the pair of lines)
 * @note Takes no lock: no other thread may be in a function of this family
 *       meanwhile. The callback may call them all; a connection that this call
 *       still uses is not closed by them, and vexa_db_close_sqlite() then gives 5
 *       (SQLITE_BUSY).
 * @note Logs "executeCommand sql_cmd:%s!!\n" at level 0 before the run.
 */
VEXA_API uint32_t vexa_db_exec_cmd(const char *sql, vexa_db_row_fn callback, void *argument, uint32_t which);

/**
 * Closes the connection to the user database. That to the factory database stays.
 * @return 0, also when none is open; 5 (SQLITE_BUSY) inside the callback of a
 *         vexa_db_exec_cmd() on it, which then closes it at its end. Logs nothing
 */
VEXA_API uint32_t vexa_db_close_sqlite(void);

/**
 * Does not restore the user database: it builds the command that would copy the
 * factory database over it, and announces its length as 0, so that
 * vexa_system_call() refuses it ("System call length mismatch: %d != %d\n").
 * The user database stays as it is.
 * @return 0; 1 would say that the copy ran
 */
VEXA_API uint32_t vexa_db_restore_factory(void);

VEXA_END_DECLS

#endif
