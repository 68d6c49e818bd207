/* SPDX-License-Identifier: MIT
 * Sizes and offsets of the public records, for pointers of 4 and of 8 bytes. Hosts are compiled with
 * them: a number that changes breaks every host that is not compiled again.
 *
 * RECORD(kind, record, size at 4, size at 8, alignment at 4, alignment at 8)
 * FIELD(kind, record, field, offset at 4, offset at 8), in the order of the header
 *
 * The locks are those of the C library: 24 or 40 bytes for a mutex, 48 for a condition variable.
 */
#ifndef RECORD
#error "define RECORD and FIELD before including this table"
#endif

RECORD(struct, list_link, 4, 8, 4, 8)
FIELD(struct, list_link, next, 0, 0)

RECORD(struct, list_header, 40, 64, 4, 8)
FIELD(struct, list_header, head, 0, 0)
FIELD(struct, list_header, tail, 4, 8)
FIELD(struct, list_header, count, 8, 16)
FIELD(struct, list_header, initialised, 12, 20)
FIELD(struct, list_header, lock, 16, 24)

RECORD(struct, ordered_list_link, 12, 24, 4, 8)
FIELD(struct, ordered_list_link, next, 0, 0)
FIELD(struct, ordered_list_link, prev, 4, 8)
FIELD(struct, ordered_list_link, key, 8, 16)

RECORD(struct, ordered_list_header, 44, 72, 4, 8)
FIELD(struct, ordered_list_header, head, 0, 0)
FIELD(struct, ordered_list_header, tail, 4, 8)
FIELD(struct, ordered_list_header, count, 8, 16)
FIELD(struct, ordered_list_header, mode, 12, 20)
FIELD(struct, ordered_list_header, initialised, 16, 24)
FIELD(struct, ordered_list_header, lock, 20, 32)

RECORD(struct, q_link_node, 8, 16, 4, 8)
FIELD(struct, q_link_node, next, 0, 0)
FIELD(struct, q_link_node, prev, 4, 8)

RECORD(struct, q_queue, 36, 64, 4, 8)
FIELD(struct, q_queue, ends, 0, 0)
FIELD(struct, q_queue, count, 8, 16)
FIELD(struct, q_queue, lock, 12, 24)

RECORD(struct, vexa_clk_time, 8, 8, 4, 4)
FIELD(struct, vexa_clk_time, sec, 0, 0)
FIELD(struct, vexa_clk_time, usec, 4, 4)

RECORD(struct, vexa_cmd_q_data, 8, 16, 4, 8)
FIELD(struct, vexa_cmd_q_data, cmd_type, 0, 0)
FIELD(struct, vexa_cmd_q_data, payload, 4, 8)

RECORD(struct, vexa_cmd_q_list, 16, 32, 4, 8)
FIELD(struct, vexa_cmd_q_list, text, 0, 0)
FIELD(struct, vexa_cmd_q_list, second_text, 4, 8)
FIELD(struct, vexa_cmd_q_list, entries, 8, 16)
FIELD(struct, vexa_cmd_q_list, entry_count, 12, 24)

RECORD(struct, vexa_cmd_q_text, 4, 8, 4, 8)
FIELD(struct, vexa_cmd_q_text, text, 0, 0)

RECORD(struct, vexa_cmn_sem, 80, 96, 8, 8)
FIELD(struct, vexa_cmn_sem, lock, 0, 0)
FIELD(struct, vexa_cmn_sem, cond, 24, 40)
FIELD(struct, vexa_cmn_sem, condattr, 72, 88)
FIELD(struct, vexa_cmn_sem, value, 76, 92)

RECORD(struct, vexa_cmn_timeval, 8, 16, 4, 8)
FIELD(struct, vexa_cmn_timeval, seconds, 0, 0)
FIELD(struct, vexa_cmn_timeval, microseconds, 4, 8)

RECORD(struct, vexa_db_param, 20, 32, 4, 8)
FIELD(struct, vexa_db_param, value, 0, 0)
FIELD(struct, vexa_db_param, key, 4, 8)
FIELD(struct, vexa_db_param, type, 8, 16)
FIELD(struct, vexa_db_param, size, 12, 20)
FIELD(struct, vexa_db_param, param_id, 16, 24)

RECORD(struct, vexa_db_table, 8, 16, 4, 8)
FIELD(struct, vexa_db_table, name, 0, 0)
FIELD(struct, vexa_db_table, params, 4, 8)

RECORD(struct, vexa_dm_backend_ops, 28, 56, 4, 8)
FIELD(struct, vexa_dm_backend_ops, write, 0, 0)
FIELD(struct, vexa_dm_backend_ops, read, 4, 8)
FIELD(struct, vexa_dm_backend_ops, clean, 8, 16)
FIELD(struct, vexa_dm_backend_ops, def_db_const, 12, 24)
FIELD(struct, vexa_dm_backend_ops, def_db_read, 16, 32)
FIELD(struct, vexa_dm_backend_ops, read_cfg_db_version, 20, 40)
FIELD(struct, vexa_dm_backend_ops, read_def_items_db_version, 24, 48)

RECORD(struct, vexa_dm_default_item, 84, 88, 4, 8)
FIELD(struct, vexa_dm_default_item, id, 0, 0)
FIELD(struct, vexa_dm_default_item, desc, 4, 4)
FIELD(struct, vexa_dm_default_item, value, 72, 72)
FIELD(struct, vexa_dm_default_item, type, 76, 80)
FIELD(struct, vexa_dm_default_item, length, 80, 84)

RECORD(union, vexa_dm_default_value, 4, 8, 4, 8)
FIELD(union, vexa_dm_default_value, u8, 0, 0)
FIELD(union, vexa_dm_default_value, u16, 0, 0)
FIELD(union, vexa_dm_default_value, u32, 0, 0)
FIELD(union, vexa_dm_default_value, text, 0, 0)
FIELD(union, vexa_dm_default_value, block, 0, 0)

RECORD(struct, vexa_dm_handle, 32, 64, 4, 8)
FIELD(struct, vexa_dm_handle, type, 0, 0)
FIELD(struct, vexa_dm_handle, ops, 4, 8)

RECORD(struct, vexa_dm_item_desc, 68, 68, 4, 4)
FIELD(struct, vexa_dm_item_desc, table, 0, 0)
FIELD(struct, vexa_dm_item_desc, key, 32, 32)
FIELD(struct, vexa_dm_item_desc, type, 64, 64)

RECORD(struct, vexa_mytime, 12, 12, 2, 2)
FIELD(struct, vexa_mytime, year, 0, 0)
FIELD(struct, vexa_mytime, month, 2, 2)
FIELD(struct, vexa_mytime, day, 3, 3)
FIELD(struct, vexa_mytime, hour, 4, 4)
FIELD(struct, vexa_mytime, minute, 5, 5)
FIELD(struct, vexa_mytime, second, 6, 6)
FIELD(struct, vexa_mytime, milliseconds, 8, 8)
FIELD(struct, vexa_mytime, weekday, 10, 10)

RECORD(struct, vexa_sym_entry, 36, 40, 4, 8)
FIELD(struct, vexa_sym_entry, next, 0, 0)
FIELD(struct, vexa_sym_entry, name, 4, 8)
FIELD(struct, vexa_sym_entry, content, 18, 22)
FIELD(struct, vexa_sym_entry, arg, 32, 36)

RECORD(struct, vexa_sym_value, 14, 14, 1, 1)
FIELD(struct, vexa_sym_value, value, 0, 0)
FIELD(struct, vexa_sym_value, type, 8, 8)
FIELD(struct, vexa_sym_value, valid, 12, 12)
FIELD(struct, vexa_sym_value, allocated, 13, 13)

#undef RECORD
#undef FIELD
