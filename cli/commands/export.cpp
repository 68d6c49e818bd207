// SPDX-License-Identifier: MIT
// export: the library's CSV, read again behind it.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <vexadm/data_manager.h>
#include <vexadm/storage.h>

#include "caught_output.h"
#include "commands/rows.h"
#include "store_writer.h"

namespace cli {
namespace {

constexpr std::string_view kLineEnd("\r\n\0", 3);

// How many line ends the CSV of the primary has.
struct Lines {
  std::size_t count = 1;  // the header
  bool whole = false;     // every table could be read to its end
  Text why;
};

std::size_t count_ends(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(kLineEnd, at)) != std::string_view::npos; at += kLineEnd.size())
    ++count;
  return count;
}

// A text that ends in CR LF makes a line end of its own with the NUL behind it.
std::size_t ends_in_value(const look::Query& row) {
  if (static_cast<int32_t>(row.number(1)) != VEXA_DM_STRING) return 0;
  const auto length = static_cast<int32_t>(row.number(0));
  Text value(part(row.bytes(2), 0, static_cast<std::size_t>(std::max(length, 0))));
  value.add('\0');
  return count_ends(value.view());
}

// By the library's own statement, which leaves out a table that it cannot name or that is not of items.
void count_rows(const look::Database& database, const Text& table, Lines& out) {
  look::Query rows(database, textf("select len, type, value, key from %s", table.c_str()).c_str());
  if (rows.code() == SQLITE_ERROR) return;
  while (rows.next()) out.count += 1 + ends_in_value(rows);
  if (!rows.failed()) return;
  out.whole = false;
  out.why = Text(sqlite3_errmsg(database.get()));
}

Lines lines_of(const Text& primary) {
  Lines lines;
  look::Database database;
  if (database.open(primary.c_str()) != SQLITE_OK) {
    lines.why = Text(database.why().view());
    return lines;
  }
  lines.whole = true;
  look::Query tables(database, "select name from sqlite_master where type='table'");
  while (tables.next()) count_rows(database, Text(tables.bytes(0)), lines);
  if (tables.failed()) {
    lines.whole = false;
    lines.why = Text(sqlite3_errmsg(database.get()));
  }
  return lines;
}

// The line ends of the file; 0 where its last line has none.
bool read_csv(const Text& path, std::size_t& ends) {
  std::FILE* file = std::fopen(path.c_str(), "re");
  if (file == nullptr) return false;
  Text content;
  for (std::size_t count = 1; count > 0;) {
    char block[4096];
    count = std::fread(block, 1, sizeof block, file);
    content.add(std::string_view(block, count));
  }
  const bool whole = std::ferror(file) == 0;
  std::fclose(file);
  ends = content.view().ends_with(kLineEnd) ? count_ends(content.view()) : 0;
  return whole;
}

// The library does not look whether there was room for what it writes.
int check_csv(const Text& csv, const Text& named, const Lines& before, const Lines& after) {
  std::size_t ends = 0;
  if (!read_csv(csv, ends)) return fail("%s cannot be read: %s", named.c_str(), std::strerror(errno));
  if (ends < before.count) return fail("%s is cut: is the storage full?", named.c_str());
  // A program may have added items between.
  if (ends > std::max(before.count, after.count)) {
    return fail("%s has more than the primary: delete it, and export again", named.c_str());
  }
  return kDone;
}

int run_export(Arguments& arguments) {
  const look::Places named = arguments.places();
  {
    look::Database database;
    if (database.open(named.primary.c_str()) != SQLITE_OK) {
      return fail("%s cannot be read: %s; vexadm check tells more", named.primary.c_str(),
                  database.why().c_str());
    }
  }
  if (const int code = enter_store(arguments); code != kDone) return code;
  const look::Places places = arguments.places();
  const Lines before = lines_of(places.primary);
  CaughtOutput caught;
  const uint32_t result = dm_read_all_tabs_from_db(DB_CONFIG);
  caught.give_back();
  if (result != 0) {
    caught.tell();
    tell_failures();
    return fail("%s was not written: the library says %d", named.export_csv.c_str(),
                static_cast<int32_t>(result));
  }
  const Lines after = lines_of(places.primary);
  if (!before.whole || !after.whole) {
    caught.tell();
    return fail("%s is damaged, and %s has not all of it: %s; vexadm check tells more", named.primary.c_str(),
                named.export_csv.c_str(), (before.whole ? after : before).why.c_str());
  }
  if (const int code = check_csv(places.export_csv, named.export_csv, before, after); code != kDone) {
    caught.tell();
    return code;
  }
  if (arguments.json) {
    Json().object().text("file", named.export_csv.view()).end();
  } else {
    print(textf("%s\n", named.export_csv.c_str()));
  }
  return kDone;
}

}  // namespace

extern const Command kExport = {
    "export",
    "",
    "The library's CSV of the primary, as a file",
    "Into /data/ExportCSV.csv; prints its name. Lines end in CR, LF and NUL.",
    "  $ vexadm export\n"
    "  /data/ExportCSV.csv\n"
    "  $ tr -d '\\000\\r' < /data/ExportCSV.csv",
    {},
    0,
    0,
    true,
    run_export,
};

}  // namespace cli
