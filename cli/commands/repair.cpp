// SPDX-License-Identifier: MIT
// repair: what the library would do to a damaged store, with a copy of everything first.
#include <dirent.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <vexadm/data_manager.h>
#include <vexadm/storage.h>

#include "commands/item_write.h"
#include "commands/rows.h"
#include "look/diagnosis.h"
#include "store_writer.h"

namespace cli {
namespace {

using look::Diagnosis;
using look::Health;
using look::ItemFile;

// What is to be done, in this order.
struct Plan {
  enum class Source { kNone, kBackup, kFactory };
  Source primary_from = Source::kNone;
  bool refresh_backup = false;  // the primary over the backup
  bool remove_journal = false;
  bool finish_write = false;  // the item of the journal, from the primary to the backup
  bool any() const {
    return primary_from != Source::kNone || refresh_backup || remove_journal || finish_write;
  }
};

bool usable(const ItemFile& file) { return file.healthy() && file.has_rows(); }

bool backup_lacks_something(const Diagnosis& diagnosis) {
  if (!usable(diagnosis.backup)) return true;
  for (const look::Item& item : diagnosis.primary.items) {
    // A second row of a key is never read.
    if (look::find_exact(diagnosis.primary.items, item.table.view(), item.key.view()) != &item) continue;
    const look::Item* there = look::find_exact(diagnosis.backup.items, item.table.view(), item.key.view());
    if (there == nullptr || there->value.view() != item.value.view() || there->type != item.type) return true;
    if (there->verdict == look::Verdict::kBad && item.verdict != look::Verdict::kBad) return true;
  }
  return false;
}

// A refresh takes what only the backup has, so it is no part of a repair then.
bool backup_has_more(const Diagnosis& diagnosis) {
  if (!usable(diagnosis.backup)) return false;
  for (const look::Item& item : diagnosis.backup.items) {
    const look::Item* there = look::find_exact(diagnosis.primary.items, item.table.view(), item.key.view());
    if (there == nullptr) return true;
    if (there->verdict == look::Verdict::kBad && item.verdict == look::Verdict::kGood) return true;
  }
  return false;
}

Plan plan_for(const Diagnosis& diagnosis) {
  Plan plan;
  if (!usable(diagnosis.primary)) {
    if (usable(diagnosis.backup)) {
      plan.primary_from = Plan::Source::kBackup;
    } else if (usable(diagnosis.factory)) {
      plan.primary_from = Plan::Source::kFactory;
      plan.refresh_backup = true;
    }
  } else if (!backup_has_more(diagnosis)) {
    const look::JournalRow& row = diagnosis.last_write;
    const bool cut_write = row.found && row.state == WS_READY;
    if (backup_lacks_something(diagnosis)) {
      // A write that was cut before it was complete: the library keeps the old value, and so does a repair.
      plan.refresh_backup = !cut_write || !usable(diagnosis.backup);
      plan.finish_write = row.found && row.state == WS_WRITE_DONE && usable(diagnosis.backup);
      if (plan.finish_write) plan.refresh_backup = false;
    }
  }
  const Health journal = diagnosis.journal.health;
  plan.remove_journal =
      journal == Health::kNotDatabase || (journal == Health::kCorrupt && !diagnosis.last_write.found);
  return plan;
}

// ---- copies of everything -------------------------------------------------------

bool copy_file(const char* from, const char* to) {
  const int source = open(from, O_RDONLY | O_CLOEXEC);
  if (source < 0) return false;
  struct stat entry {};
  fstat(source, &entry);
  const int target = open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, entry.st_mode & 0777);
  bool copied = target >= 0;
  while (copied) {
    char part[16384];
    const ssize_t count = read(source, part, sizeof part);
    if (count <= 0) {
      copied = count == 0;
      break;
    }
    copied = write(target, part, static_cast<std::size_t>(count)) == count;
  }
  if (target >= 0) {
    copied = fsync(target) == 0 && copied;
    copied = close(target) == 0 && copied;
  }
  close(source);
  return copied;
}

bool sync_directory(const char* path) {
  const int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = fsync(fd) == 0;
  close(fd);
  return synced;
}

Text directory_of(const Text& path) { return Text(part(path.view(), 0, path.view().rfind('/') + 1)); }
std::string_view name_of(const Text& path) { return part(path.view(), path.view().rfind('/') + 1); }

// Everything that a repair may touch, the evidence beside it too, in a directory of its own. Raw
// bytes: no connection is open.
int keep_everything(const look::Places& places, Text& kept_in) {
  const time_t now = time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  char stamp[40] = {};
  strftime(stamp, sizeof stamp, "vexadm-repair_%Y-%m-%d_%H_%M_%S", &local);
  const Text store = directory_of(places.primary);
  kept_in = textf("%s%s", store.c_str(), stamp);
  if (mkdir(kept_in.c_str(), 0700) != 0)
    return fail("%s: %s; nothing was repaired", kept_in.c_str(), std::strerror(errno));
  for (const Text* path : {&places.primary, &places.backup, &places.journal}) {
    for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
      const Text from = textf("%s%s", path->c_str(), suffix);
      if (!look::exists(from.c_str())) continue;
      const Text to = textf("%s/%s%s", kept_in.c_str(), Text(name_of(*path)).c_str(), suffix);
      if (!copy_file(from.c_str(), to.c_str())) {
        return fail("%s could not be copied to %s: %s; nothing was repaired", from.c_str(), kept_in.c_str(),
                    std::strerror(errno));
      }
    }
  }
  if (!sync_directory(kept_in.c_str()) || !sync_directory(store.c_str())) {
    return fail("%s is not on storage: %s; nothing was repaired", kept_in.c_str(), std::strerror(errno));
  }
  return kDone;
}

// ---- steps ------------------------------------------------------------------------

// By the settled content of the other, as the library's own copies have it.
int replace_primary(const look::Places& places, const Text& from) {
  const Text temporary = textf("%s.vexadm-copy-config", directory_of(places.primary).c_str());
  look::Database source;
  sqlite3_int64 size = 0;
  unsigned char* image =
      source.open(from.c_str()) == SQLITE_OK ? sqlite3_serialize(source.get(), "main", &size, 0) : nullptr;
  if (image == nullptr) return fail("%s could not be read: %s", from.c_str(), source.why().c_str());
  struct stat old {};
  const bool replaces = stat(places.primary.c_str(), &old) == 0;
  unlink(temporary.c_str());
  const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                      replaces ? old.st_mode & 0777 : 0644);
  bool written = fd >= 0;
  for (sqlite3_int64 at = 0; written && at < size;) {
    const ssize_t count = write(fd, image + at, static_cast<std::size_t>(size - at));
    written = count > 0;
    at += count;
  }
  // An ordinary user cannot give files away; the content matters more than its owner.
  if (replaces && fd >= 0 && fchown(fd, old.st_uid, old.st_gid) != 0) errno = 0;
  written = written && fsync(fd) == 0;
  if (fd >= 0) written = close(fd) == 0 && written;
  sqlite3_free(image);
  source.close();
  // What belongs to the damaged file must not be applied to the sound one.
  for (const char* suffix : {"-journal", "-wal", "-shm"}) {
    if (written) unlink(textf("%s%s", places.primary.c_str(), suffix).c_str());
  }
  if (written && rename(temporary.c_str(), places.primary.c_str()) == 0 &&
      sync_directory(directory_of(places.primary).c_str())) {
    return kDone;
  }
  const int reason = errno;
  unlink(temporary.c_str());
  return fail("%s could not be replaced: %s", places.primary.c_str(), std::strerror(reason));
}

// The library copies the primary over the backup behind each write, and this one changes nothing.
int refresh_backup() {
  const uint32_t version = VEXA_SCHEMA_VERSION;
  const int32_t result =
      dm_pal_write("SQL_VER_TAB", version, "SQL_VER_KEY", VEXA_DM_U32, &version, sizeof version);
  if (result == 0) return kDone;
  tell_failures();
  return fail("the backup could not be made from the primary: the library says %d", result);
}

const Text& source_of(const Plan& plan, const look::Places& places) {
  return plan.primary_from == Plan::Source::kBackup ? places.backup : places.factory;
}

int carry_out(const Plan& plan, const look::Places& places) {
  if (plan.remove_journal && unlink(places.journal.c_str()) != 0) {
    return fail("%s could not be deleted: %s", places.journal.c_str(), std::strerror(errno));
  }
  if (plan.primary_from != Plan::Source::kNone) {
    if (const int code = replace_primary(places, source_of(plan, places)); code != kDone) return code;
  }
  if (plan.finish_write && dm_sqlite_check_database() != 0) {
    tell_failures();
    return fail("the write that was cut could not be finished");
  }
  return plan.refresh_backup ? refresh_backup() : kDone;
}

void tell_plan(const Plan& plan, const look::Places& places, bool to_do) {
  const char* verb = to_do ? "would " : "";
  const char* end = to_do ? "" : "d";
  Text out;
  if (plan.remove_journal) out.addf("%sdelete%s %s\n", verb, end, places.journal.c_str());
  if (plan.primary_from != Plan::Source::kNone) {
    out.addf("%sreplace%s %s by a copy of %s\n", verb, end, places.primary.c_str(),
             source_of(plan, places).c_str());
  }
  if (plan.finish_write)
    out.addf("%s the item of the last write from primary to backup\n", to_do ? "would copy" : "copied");
  if (plan.refresh_backup) {
    out.addf("%s %s over %s\n", to_do ? "would copy" : "copied", places.primary.c_str(),
             places.backup.c_str());
  }
  print(out);
}

int run_repair(Arguments& arguments) {
  // As the user names them: with --root the tree is the root from enter_store() on.
  const look::Places named = arguments.places();
  const Text root(arguments.root != nullptr ? arguments.root : "");
  {
    const Diagnosis diagnosis = look::diagnose(named);
    const Plan plan = plan_for(diagnosis);
    if (!plan.any()) {
      if (!diagnosis.faulty()) {
        note(arguments, "nothing to repair");
        return kDone;
      }
      return fail("there are faults that no copy can mend; vexadm check tells what a person can do");
    }
    if (arguments.has("--dry-run")) {
      tell_plan(plan, named, true);
      return kDone;
    }
  }
  if (const int code = enter_store(arguments); code != kDone) return code;
  const look::Places places = arguments.places();
  const Plan plan = plan_for(look::diagnose(places));
  Text kept_in;
  if (const int code = keep_everything(places, kept_in); code != kDone) return code;
  print(textf("everything as it was is kept in %s%s\n", root.c_str(), kept_in.c_str()));
  if (const int code = carry_out(plan, places); code != kDone) return code;
  tell_plan(plan, named, false);
  if (!look::diagnose(places).faulty()) return kDone;
  return fail("there are faults left; vexadm check tells what a person can do");
}

constexpr Option kRepairOptions[] = {{"--dry-run", nullptr, "say what would be done, and do nothing"}};

}  // namespace

extern const Command kRepair = {
    "repair",
    "",
    "Mends a store as the library would, after a copy of everything",
    "A primary that is corrupt, no database, missing or empty is made from the backup, or else from the\n"
    "factory copy; a backup that is damaged or stale from the primary; an item whose write was cut at\n"
    "its end is copied; a journal that is no database is deleted. Values are never guessed.\n"
    "\n"
    "Before that, primary, backup and journal go byte for byte into a directory beside them whose name\n"
    "has date and time. Stop the router's programs first.",
    "  $ vexadm repair\n"
    "  everything as it was is kept in /data/vexadm-repair_2026-11-02_08_15_00\n"
    "  replaced /data/config.db by a copy of /data/configbak.db",
    kRepairOptions,
    0,
    0,
    false,
    run_repair,
};

}  // namespace cli
