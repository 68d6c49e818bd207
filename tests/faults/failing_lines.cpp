// SPDX-License-Identifier: MIT
// The lines, of warning level and above, that a failure may leave in the log; and the sums of the
// tables.
#include <algorithm>
#include <string_view>

#include "faults/failing_operations.h"

namespace vexa_test {
namespace {

constexpr std::string_view kLines[] = {
    // One database file
    "3 dm_read_db|sqlite3_open failed: <any>\n",
    "3 dm_read_db|[LINE] sqlite3_prepare error, <any> \n",
    "3 dm_read_db|sqlite3_step error <any>\n",
    "3 dm_read_db|error: DB_CONFIG is damaged cp /data/configbak.db /data/config.db",
    "3 dm_read_db|error: DB_CONFIG is damaged so cp /vexanvbak/data/config.db /data/config.db",
    "3 dm_write_db|sqlite3_open failed: <any>\n",
    "3 dm_write_db|[LINE] create table error rc=<any>, <any>, szSql: create table if not exists <any>\n",
    "3 dm_write_db|ERROR: cp /data/configbak.db /data/config.db",
    "3 dm_write_db|ERROR: cp /vexanvbak/data/config.db /data/config.db",
    "3 dm_update_record|[LINE] sqlite3_prepare error, rc: <any>\n",
    "3 dm_update_record|[LINE] sqlite3_prepare error, <any>\n",
    "3 dm_update_record|[LINE] bind_blob error, rc: <any>\n",
    "3 dm_update_record|[LINE] bind_blob error, <any>\n",
    "3 dm_update_record|LINE step failed rc: <any>\n",
    "3 dm_update_record|alter_table_add_column failed\n",
    "3 dm_record_exist|[LINE] get table existence error: <any>\n",
    "2 alter_table_add_column|<any>\n",
    "3 alter_table_add_column|cnt error 3\n",
    "3 alter_table_add_column|[LINE] update error, <any>\n",
    // The pair, its journal, its health
    "3 dm_pal_write|ERROR: cp /data/config.db /data/configbak.db",
    "3 dm_pal_write|/data/configbak.db keeps the previous value of <any>\n",
    "3 dm_pal_write|dm_update_db: \n",
    "3 dm_pal_write|dm_write_state_db  WS_READY failed: -1\n",
    "3 dm_pal_write|dm_write_state_db  WS_WRITE_DONE failed: -1\n",
    "3 dm_pal_write|dm_write_state_db  WS_BACKUP_DONE failed: -1\n",
    "3 dm_write_state_db|sqlite3_open failed: <any>\n",
    "3 dm_write_state_db|[LINE] create table error, <any>\n",
    "3 dm_write_state_db|szSql: update state set <any>, rc: <any>, szErrMsg: <any>\n",
    "3 dm_write_state_db|alter_table_add_column failed\n",
    "3 dm_write_state_db|[LINE] update error, <any>\n",
    "3 dm_write_state_db|ret_pos is NULL, other error occured\n",
    "3 dm_write_state_db|Can't create database: <any>\n",
    "3 dm_write_state_db|error when szSql: update state set <any>, rc: <any>\n",
    "3 dm_write_state_db|[LINE] insert error, <any>\n",
    "3 dm_read_state_db|sqlite3_open failed: <any>\n",
    "2 dm_read_state_db|errmsg <any>\n",
    "3 dm_read_state_db|alter_table_add_column failed\n",
    "3 check_database_health|Database is corrupted upon opening: <any> (Code: 11)\n",
    "3 check_database_health|Open failed: <any> (Code: <any>)\n",
    "3 check_database_health|<any> corruption detected: <any> (Code: 11)\n",
    "3 check_database_health|<any> Quick check error: <any> (Code: <any>)\n",
    "3 check_database_health|is_corrupted=<any>\n",
    "3 integrity_check_callback|[ERROR] Corruption detected: <any>\n",
    "2 dm_pal_check_db_exist|config && configbak all exist\n",
    // Defaults and versions
    "3 dm_write_def_db|sqlite3_open failed: <any>\n",
    "3 dm_write_def_db|[LINE] create table error, <any>\n",
    "3 dm_update_def_record|[LINE] sqlite3_prepare error, <any>\n",
    "3 dm_update_def_record|[LINE] bind_blob error, <any>\n",
    "3 dm_update_def_record|LINE step failed rc: <any>\n",
    "3 dm_update_def_record|alter_table_add_column failed\n",
    "3 dm_read_def_db|sqlite3_open failed: <any>\n",
    "3 dm_read_def_db|[LINE] sqlite3_prepare error, <any>\n",
    "3 dm_read_def_db|sqlite3_step error <any>\n",
    "3 sqlite_chk_db_ver_match|tmp_sqlite_ver read fail\n",
    "3 sqlite_chk_db_ver_match|tmp_DefItems_db_ver read fail\n",
    "3 sqlite_chk_db_ver_match| sqlite_chk_db_ver_matched \n",
    "3 sqlite_chk_db_ver_match| sqlite_chk_db_ver_not_matched \n",
    // Commands, clean, export
    "3 dm_sqlite_system_cmd|system command failed: (<any>) <any>\n",
    "3 dm_sqlite_clean|unlink error: <any>\n",
    "3 dm_sqlite_clean|unlink bak error: <any>\n",
    "3 dm_sqlite_clean|unlink state error: <any>\n",
    "3 dm_read_all_tabs_from_db|sqlite3_open failed: <any>\n",
    "3 dm_export_by_table|value:<any>\n",
    // The data manager
    "3 oem_dm_read_item_from_mem|read_item:<any> from_mem fail!\n",
    "3 oem_dm_add_item_to_mem|dm_update_item_value_to_mem:no item found \n",
    "3 oem_dm_construct_queue_from_kvl|oem_MALLOC fail!\r\n",
    "3 oem_dm_reg_def_items|oem_dm_def_reg_map_symtab open failed\n",
    "3 oem_dm_reg_event_callback|vexa_dm_reg_event_callback param NULL\n",
    "3 oem_dm_try_read_def_value|ver_match fail,so ignore DefItems data!\n",
    "3 oem_dm_try_read_def_value|apn def value is factory\n",
    "3 oem_dm_try_read_def_value|pairs def value is a,1;\n",
    "3 oem_dm_read|oem_dm_read def value:<any> not register!\n",
    "3 oem_dm_read_db|hash:NET apn\n",
    "3 oem_dm_read_db|oem_dm_read_db def value:1 not register!\n",
    "3 oem_dm_write_db|hash:NET apn\n",
    "3 oem_dm_empty|hash:NET apn\n",
    "3 oem_dm_write_key_value_pairs|read db failed\n",
    "3 oem_dm_write_key_value_pairs|write db failed\n",
    "3 oem_dm_read_key_value_pairs|read db failed\n",
    // The toolbox
    "2 oem_some_function|text 5\n",
    "3 oem_some_function|text 5\n",
    "4 oem_some_function|text 5\n",
    "-1 oem_some_function|text 5\n",
    "3 oem_strip_quotes_out|The in_str must be quoted\n",
    "3 oem_hex_BinaryToString|Hex string array (4) is too small to convert (4) bytes\n",
    "3 oem_string_memcpy|Invalid string parameter.\n",
    "3 dir_make_path|Could not create directory '/data/a/b/c'.\n",
    // The network
    "3 oem_get_ipv6_default_gw|couldn't open NETLINK_ROUTE socket:<any>\n",
    "3 oem_get_ipv6_default_gw|couldn't bind:<any>\n",
    "3 oem_get_ipv6_default_gw|Failed to perfom request\n",
    "3 oem_rtnl_receive|Can't receive from socket:<any>\n",
    "3 oem_rtnl_recvmsg|oem_MALLOC failed\n",
    "3 oem_dump_route|Can't map iface name(<any>) to index\n",
    "3 oem_dump_route|Wrong message length:20:-8:28\n",
    "3 oem_check_global_ipv6_addr|if_nametoindex failed:wan0\n",
    "3 oem_check_global_ipv6_addr|epoll create failure:<any>\n",
    "3 oem_check_global_ipv6_addr|couldn't open NETLINK_ROUTE socket:<any>\n",
    "3 oem_check_global_ipv6_addr|couldn't bind:<any>\n",
    "3 oem_check_global_ipv6_addr|epoll add sock_fd error\n",
    "3 oem_epoll_event_handle|Timeout to wait for IPv6 event\n",
    "3 ConvertIPv4NumToStr|ipStr size is 15; must be at least 16\n",
    "3 ConvertIPv6NumToStr|input ipNum is NULL now !!!\n",
    "3 Is_valid_Mac|No Match!!! \n",
    // Identity, clocks, message files
    "3 odm_get_value_from_string|Only containe space in \n",
    "3 __oem_get_project_name_cmdline|Could not find oem.project in <any>\n",
    "3 oem_ping_state|>>>ping status:fail>>>\n",
    "3 oem_system_call_ex|system command failed\n",
    "3 oem_system_call_ex|system command failed, rc=<any> errno: <any>\n",
    "3 get_linuxuptime|info.uptime is -1\n",
    "3 oem_system_call|system error!\n",
    "3 oem_system_call|run shell script fail=32512, script exit code: 127\n",
    // The parameter database
    "3 open_sqlite_db|Error, db:<any> couldn't access.\n",
    "3 open_sqlite_db|Error, db:<any> open failed:<any>.\n",
    "3 oem_system_call|System call length mismatch: 0 != 87\n",
    "3 update_item_to_db|Error, db:<any> open_sqlite_db return faild.\n",
    "3 update_item_to_db|Error, sqlite3_get_table run faild, sql_cmd:[<any>], db err:[<any>].\n",
    "3 update_item_to_db|Error, sql_cmd err info:[<any>].\n",
    "3 search_by_table|Error, open_sqlite_db return faild.\n",
    "3 search_by_table|Error, sqlite3_get_table run faild, sql_cmd:[<any>], db err:[<any>].\n",
    "3 search_by_table|Error, sql_cmd err info:[<any>].\n",
    "3 oem_db_query_db_init_struct|Error, db:<any> search_by_table return failed. sql_cmd:select <any>\n",
    "3 oem_db_update_db_from_struct|Error, tbl_name:t update key:[<any>] failed.\n",
    "3 __oem_db_get_factory_value|Error, db:<any> search_by_table return failed.\n",
    "3 __vexa_db_get_factory_value|Error, db:<any> search_by_table return failed.\n",  // no memory to rewrite
    "3 oem_db_get_value|Error, db:<any> search_by_table return failed.\n",
    "3 oem_db_exec_cmd|Error, db:<any> open_sqlite_db return faild.\n",
    "3 oem_db_exec_cmd|Error, sqlite3_get_table run faild, sql_cmd:[<any>], db err:[<any>].\n",
    "3 oem_db_exec_cmd|Error, sql_cmd err info:[<any>].\n",
    // Commands
    "3 oem_system_call|system error!\n",
    "3 oem_system_call|run shell script fail=32512, script exit code: 127\n",
    "3 oem_system_call_ex|system command failed\n",
    "3 oem_system_call_ex|system command failed, rc=-1 errno: <any>\n",
    "3 oem_popen_call|popen call:echo one; echo two fail[<any>]\n",
    "3 oem_popen_call|result_str is NULL!",
    "3 oem_ds_system_call3|unable to re-direct stderr: command string too long.Command string was: "
    "xxx<any>xxx\n",
    "3 oem_popen_call_ex|popen call:echo one; echo two fail[<any>]\n",
    // AT commands, the device
    "3 oem_util_send_at|socket error [<any>]<any>\n",
    "3 oem_util_send_at|select fail:ret=-1\n",
    "3 oem_util_send_at|recvfrom fail:error=<any>,[<any>]\n",
    "3 oem_util_get_file_int_value|Not exist file=/tmp/number\n",
    "3 oem_util_set_file_int_value|Not exist file=/tmp/number\n",
    "3 oem_util_set_file_int_value|fwrite() failed, only [<any>] written, total_len=[4], reason=[<any>]<any>",
    "3 oem_create_and_check_directory|Directory /data/a/b/c creation error.\n",
    "3 oem_util_get_if_addr|sfd is invalid\n",
    "3 oem_get_pid_by_name|command popen error!!!\n",
    // Text conversions
    "3 oem_util_convert_utf8_to_ucs2|Error in converting utf8 string to ucs2\n",
    "3 oem_util_convert_ucs2_to_utf8|utf8str or utf8Start is NULL\n",
    "3 oem_util_ss_ascii_to_utf8|the utf8 str buffer length is not enough\n",
    "3 oem_util_convert_gsm8bit_alpha_string_to_utf8|Invalid parameters for GSM alphabet to UTF8 conversion, "
    "input len = 0\n",
    "3 oem_util_convert_gsm_def_alpha_string_to_utf8|Fail to allocate buffer for GSM alphabet to UTF8 "
    "conversion\n",
    "3 oem_util_convert_ussd_string_to_utf8|Destination buffer (sz 2) less than required 2\n",
    "3 oem_util_convert_ussd_string_to_utf8|USC2 to UTF8 conversion failed due to lack of memory\n",
};

}  // namespace

Called* g_called = nullptr;

std::ostream& operator<<(std::ostream& out, const Operation& operation) { return out << operation.name; }

std::vector<Operation> all_operations() {
  std::vector<Operation> all;
  for (const auto part : {storage_item_operations, storage_file_operations, manager_operations,
                          process_operations, toolbox_operations, network_operations, identity_operations,
                          list_operations, param_operations, device_operations, text_conversion_operations}) {
    const std::vector<Operation> operations = part();
    all.insert(all.end(), operations.begin(), operations.end());
  }
  return all;
}

std::vector<Operation> operations_where(bool (*wanted)(const Operation&)) {
  std::vector<Operation> all = all_operations();
  std::erase_if(all, [&](const Operation& operation) { return !wanted(operation); });
  return all;
}

bool is_documented_line(const std::string& line) {
  return std::any_of(std::begin(kLines), std::end(kLines),
                     [&](std::string_view documented) { return log_matches(line, documented); });
}

}  // namespace vexa_test
