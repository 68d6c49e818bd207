// SPDX-License-Identifier: MIT
#include "look/journal.h"

#include <vexadm/storage.h>

#include "look/database.h"

namespace cli::look {

const char* state_name(int64_t state) {
  switch (state) {
    case WS_READY:
      return "WS_READY";
    case WS_WRITE_DONE:
      return "WS_WRITE_DONE";
    case WS_BACKUP_DONE:
      return "WS_BACKUP_DONE";
    default:
      return "unknown";
  }
}

JournalRow read_journal(const char* path) {
  JournalRow row;
  Database database;
  if (database.open(path) != SQLITE_OK) {
    row.missing = !exists(path);
    row.why = Text(database.why().view());
    return row;
  }
  // By name from what is there: older builds had fewer columns.
  Query query(database, "select * from state where key='write_state'");
  if (!query.next()) {
    row.empty = !query.failed() || query.code() == SQLITE_ERROR;
    row.why = Text(sqlite3_errmsg(database.get()));
    return row;
  }
  const auto number = [&](const char* name) {
    const int column = query.column(name);
    return column < 0 ? int64_t{0} : query.number(column);
  };
  const auto text = [&](const char* name) {
    const int column = query.column(name);
    return column < 0 ? std::string_view() : query.bytes(column);
  };
  row.table = Text(text("item_table"));
  row.key = Text(text("item_key"));
  row.id = number("id");
  row.type = number("type");
  row.length = number("len");
  row.state = number("state");
  row.found = true;
  return row;
}

}  // namespace cli::look
