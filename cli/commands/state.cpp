// SPDX-License-Identifier: MIT
// journal, versions, backups: what a store says about itself.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <vexadm/storage.h>

#include "base/value.h"
#include "commands/rows.h"
#include "look/diagnosis.h"
#include "look/journal.h"

namespace cli {

namespace {

const char* meaning_of(int64_t state) {
  switch (state) {
    case WS_READY:
      return "begun: the primary has the new value or not, programs read the old one";
    case WS_WRITE_DONE:
      return "the primary is written; the next start copies the item to the backup";
    case WS_BACKUP_DONE:
      return "complete: nothing is open";
    default:
      return "no state that the library writes";
  }
}

int run_journal(Arguments& arguments) {
  const look::Places places = arguments.places();
  const look::JournalRow row = look::read_journal(places.journal.c_str());
  if (!row.found && !row.missing && !row.empty) {
    return fail("%s cannot be read: %s; vexadm check tells more", places.journal.c_str(), row.why.c_str());
  }
  if (arguments.json) {
    Json json;
    json.object().text("file", places.journal.view()).key("write");
    if (!row.found) {
      json.null().end();
      return kDone;
    }
    json.object().text("table", row.table.view()).text("key", row.key.view()).number("id", row.id);
    json.number("type", row.type).number("length", row.length).number("state", row.state);
    json.text("state_name", look::state_name(row.state)).text("meaning", meaning_of(row.state)).end().end();
    return kDone;
  }
  Text out;
  if (!row.found) {
    out.addf("%s %s: no write is on record\n", places.journal.c_str(),
             row.missing ? "is not there" : "is empty");
  } else {
    out.add("last write  ");
    add_name(out, row.table.view());
    out.add(' ');
    add_name(out, row.key.view());
    out.addf(", id %lld, type %s, %lld bytes\nstate       %lld %s: %s\n", static_cast<long long>(row.id),
             type_name(row.type).c_str(), static_cast<long long>(row.length),
             static_cast<long long>(row.state), look::state_name(row.state), meaning_of(row.state));
  }
  print(out);
  return kDone;
}

// ---- versions ----------------------------------------------------------------

struct Version {
  const char* name;
  const Text* path;
  enum { kMissing, kUnreadable, kNone, kBad, kFound } state = kMissing;
  uint32_t number = 0;
};

void read_version(Version& version) {
  look::Database database;
  if (!look::exists(version.path->c_str())) return;
  version.state = Version::kUnreadable;
  if (database.open(version.path->c_str()) != SQLITE_OK) return;
  version.state = Version::kNone;
  List<look::Item> items;
  Text why;
  look::read_table(database, look::kVersionTable, items, why);
  for (const look::Item& item : items) {
    if (!look::is_version_record(item) || item.never_read) continue;
    const bool usable = item.value.size() == 4 && item.verdict != look::Verdict::kBad;
    version.state = usable ? Version::kFound : Version::kBad;
    version.number = number_of(item.value.view());
    return;
  }
}

int run_versions(Arguments& arguments) {
  const look::Places places = arguments.places();
  Version versions[] = {{"primary", &places.primary},
                        {"backup", &places.backup},
                        {"factory", &places.factory},
                        {"defaults", &places.defaults}};
  for (Version& version : versions) read_version(version);
  static constexpr const char* kStates[] = {"not there", "cannot be read", "no version record", "damaged"};
  if (arguments.json) {
    Json json;
    json.object().number("library", VEXA_SCHEMA_VERSION);
    for (const Version& version : versions) {
      json.key(version.name).object().text("file", version.path->view()).key("version");
      version.state == Version::kFound ? json.number(version.number) : json.null();
      json.text("state", version.state == Version::kFound ? "found" : kStates[version.state]).end();
    }
    json.end();
    return kDone;
  }
  Table table(3);
  table.cell("library");
  table.cell(textf("%08x", VEXA_SCHEMA_VERSION).view());
  table.cell("");
  for (const Version& version : versions) {
    table.cell(version.name);
    const bool found = version.state == Version::kFound;
    table.cell(found ? textf("%08x", version.number).view() : std::string_view(kStates[version.state]),
               found && version.number != VEXA_SCHEMA_VERSION ? Colour::kWarning : Colour::kPlain);
    table.cell(version.path->view());
  }
  table.print();
  return kDone;
}

// ---- backups -----------------------------------------------------------------

struct DatedCopy {
  Text name;
  int64_t size;
  look::Health health;
};

int run_backups(Arguments& arguments) {
  const look::Places places = arguments.places();
  List<DatedCopy> copies;
  List<Text> names = look::dated_copies(places);
  if (errno != 0) return fail("%s cannot be read: %s", places.dated.c_str(), std::strerror(errno));
  for (Text& name : names) {
    const Text path = textf("%s%s", places.dated.c_str(), name.c_str());
    const look::FileReport report = look::inspect(path.c_str());
    // An empty file is a database to SQLite, and no copy of anything.
    const bool empty = report.health == look::Health::kHealthy && report.size == 0;
    copies.push({std::move(name), report.size, empty ? look::Health::kNotDatabase : report.health});
  }
  std::sort(copies.begin(), copies.end(),
            [](const DatedCopy& a, const DatedCopy& b) { return a.name.view() < b.name.view(); });
  if (arguments.json) {
    Json json;
    json.object().text("directory", places.dated.view()).key("copies").array();
    for (const DatedCopy& copy : copies) {
      json.object().text("name", copy.name.view()).number("size", copy.size);
      json.boolean("healthy", copy.health == look::Health::kHealthy);
      json.text("health", look::health_name(copy.health)).end();
    }
    json.end().end();
    return kDone;
  }
  if (copies.empty()) {
    print(textf("%s holds no copies\n", places.dated.c_str()));
    return kDone;
  }
  Table table(3);
  for (const DatedCopy& copy : copies) {
    const bool healthy = copy.health == look::Health::kHealthy;
    table.name(copy.name.view());
    table.cell(textf("%lld bytes", static_cast<long long>(copy.size)).view());
    table.cell(look::health_name(copy.health), healthy ? Colour::kPlain : Colour::kBad);
  }
  table.print();
  return kDone;
}

}  // namespace

extern const Command kJournal = {
    "journal",
    "",
    "The last write, and how far it came",
    "",
    "  $ vexadm journal\n"
    "  last write  wifi ssid, id 20, type text, 12 bytes\n"
    "  state       102 WS_BACKUP_DONE: complete: nothing is open",
    {},
    0,
    0,
    true,
    run_journal,
};

extern const Command kVersions = {
    "versions",
    "",
    "The schema version of the library and of each file",
    "Stored defaults count only while backup and defaults have the library's version, as programs\n"
    "read the backup; else programs use the defaults that they are compiled with.",
    "  $ vexadm versions\n"
    "  library   00010001\n"
    "  primary   00010001   /data/config.db\n"
    "  backup    00010001   /data/configbak.db\n"
    "  factory   not there  /vexanvbak/data/config.db\n"
    "  defaults  00010001   /data/DefItems.db",
    {},
    0,
    0,
    true,
    run_versions,
};

extern const Command kBackups = {
    "backups",
    "",
    "The dated copies that cleans have left",
    "The oldest is number 1. A copy is an item database: vexadm list --file PATH shows it.",
    "  $ vexadm backups\n"
    "  2026-11-02_08_15_00.db1  20480 bytes  healthy",
    {},
    0,
    0,
    true,
    run_backups,
};

}  // namespace cli
