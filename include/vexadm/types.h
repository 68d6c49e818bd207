/* SPDX-License-Identifier: MIT */
/**
 * @file types.h
 * Records that the data manager and its storage backend share.
 *
 * Every record has natural C layout in the order shown; pointers have the
 * width of the host. All of them may be filled statically.
 */
#ifndef VEXADM_TYPES_H
#define VEXADM_TYPES_H

#include "export.h"

/** Bytes of a table or key name in an item descriptor, terminator included. */
#define VEXA_DM_NAME_SIZE 32

/** Value types of an item. Any other number means: the item carries no value. */
enum vexa_dm_type {
  VEXA_DM_U8 = 1,      /**< one byte */
  VEXA_DM_U16 = 2,     /**< two bytes, host byte order */
  VEXA_DM_U32 = 3,     /**< four bytes, host byte order */
  VEXA_DM_U32_ALT = 4, /**< four bytes, host byte order; stored like 3 under its own number */
  VEXA_DM_STRING = 5,  /**< text; stored without its terminator */
  VEXA_DM_BLOCK = 6    /**< bytes */
};

/** The only storage backend: SQLite. */
#define VEXA_DM_BACKEND_SQLITE 1u

/**
 * Where the backend keeps an item.
 *
 * Table and key go into SQL text unescaped: neither may hold a single quote,
 * and the table must be a valid SQL identifier.
 */
struct vexa_dm_item_desc {
  char table[VEXA_DM_NAME_SIZE]; /**< SQL table; terminated */
  char key[VEXA_DM_NAME_SIZE];   /**< key of the item's row in that table; terminated */
  int32_t type;                  /**< value type; the library writes this field (see vexa_dm_reg_def_items) */
};

/** A compiled-in default value; its meaning depends on the default type of the record. */
union vexa_dm_default_value {
  uint8_t u8;        /**< type 1 */
  uint16_t u16;      /**< type 2 */
  uint32_t u32;      /**< types 3 and 4 */
  const char *text;  /**< type 5: terminated text; NULL counts as no default */
  const void *block; /**< type 6: length bytes; NULL with a length counts as no default */
};

/**
 * One row of an application's item table. The table ends with a row whose id is -1.
 *
 * The rows must stay valid and writable until the process ends: the library
 * keeps pointers into them and writes desc.type.
 */
struct vexa_dm_default_item {
  int32_t id;                        /**< item id; -1 ends the table */
  struct vexa_dm_item_desc desc;     /**< where the item is kept; desc.key is also its name in log lines */
  union vexa_dm_default_value value; /**< compiled-in default */
  int32_t type;                      /**< value type, see vexa_dm_type */
  /**
   * Bytes of the default value; negative: the item has none. Types 1 to 4: the
   * width, 1, 2 or 4, which a read returns as it stands; stored defaults take so
   * many bytes from the field's address, so never more than 4. Texts are measured,
   * only the sign of length counts.
   */
  int32_t length;
};

/**
 * The operations of a storage backend, in slot order. sqlite_reg() fills them;
 * what each does stands with the function of the same purpose in storage.h.
 */
struct vexa_dm_backend_ops {
  /** Stores an item; dm_sqlite_write(). */
  int32_t (*write)(uint32_t id, const struct vexa_dm_item_desc *desc, const void *data, int32_t length);
  /** Reads an item; dm_sqlite_read(). */
  int32_t (*read)(uint32_t id, const struct vexa_dm_item_desc *desc, uint8_t *buffer, int32_t length);
  /** Deletes the stored items, not the defaults; dm_sqlite_clean(). */
  uint32_t (*clean)(char *backup);
  /** Stores a default; dm_sqlite_def_db_const(). */
  uint32_t (*def_db_const)(uint32_t id, struct vexa_dm_item_desc *desc, const void *value, uint32_t length);
  /** Reads a stored default; dm_sqlite_def_db_read(). */
  int32_t (*def_db_read)(uint32_t id, struct vexa_dm_item_desc *desc, uint8_t *buffer, int32_t length);
  /** Reads the schema version of the items; dm_sqlite_read_CfgDB_version(). */
  uint32_t (*read_cfg_db_version)(uint8_t *out);
  /** Reads the schema version of the defaults; dm_sqlite_read_DefItemsDB_version(). */
  uint32_t (*read_def_items_db_version)(uint8_t *out);
};

/** A data-manager handle: made by vexa_dm_reg(), freed by vexa_dm_unreg(). */
struct vexa_dm_handle {
  uint32_t type;                  /**< backend type; VEXA_DM_BACKEND_SQLITE is the only one served */
  struct vexa_dm_backend_ops ops; /**< operation slots; all NULL for any other type */
};

#endif
