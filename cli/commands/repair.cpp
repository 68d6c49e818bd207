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
#include <cstdlib>
#include <cstring>

#include <vexadm/data_manager.h>
#include <vexadm/storage.h>

#include "base/value.h"
#include "commands/item_write.h"
#include "commands/rows.h"
#include "look/diagnosis.h"
#include "store_writer.h"

namespace cli {
namespace {

using look::Diagnosis;
using look::Health;
using look::ItemFile;
using look::Places;

enum class File { kNone, kPrimary, kBackup, kJournal, kFactory };

const Text& path_of(const Places& places, File file) {
  switch (file) {
    case File::kBackup:
      return places.backup;
    case File::kJournal:
      return places.journal;
    case File::kFactory:
      return places.factory;
    default:
      return places.primary;
  }
}

// One thing to do, to a file and from another.
struct Step {
  enum Action { kDelete, kReplace, kCopyItem, kCopy } action;
  File file;
  File from;
};
constexpr Step kDeleteJournal = {Step::kDelete, File::kJournal, File::kNone};
constexpr Step kFinishWrite = {Step::kCopyItem, File::kBackup, File::kPrimary};
constexpr Step kRefreshBackup = {Step::kCopy, File::kBackup, File::kPrimary};

bool usable(const ItemFile& file) { return file.healthy() && file.whole && file.has_rows(); }
bool is_empty(const ItemFile& file) {
  return file.report.health == Health::kMissing || (file.healthy() && file.whole && !file.has_rows());
}

// Nothing in it is worth keeping. Not a file that could not be looked into.
bool replaceable(const ItemFile& file) {
  return is_empty(file) || file.report.health == Health::kCorrupt ||
         file.report.health == Health::kNotDatabase;
}

bool is_closed(const look::FileReport& report) {
  return report.health == Health::kUnreadable || report.health == Health::kWriteAhead;
}

bool backup_lacks(const Diagnosis& diagnosis, const look::Item& item) {
  if (look::is_version_record(item)) return false;
  // A second row of a key is never read.
  if (look::find_exact(diagnosis.primary.items, item.table.view(), item.key.view()) != &item) return false;
  const look::Item* there = look::find_exact(diagnosis.backup.items, item.table.view(), item.key.view());
  if (there == nullptr || there->value.view() != item.value.view() || there->type != item.type) return true;
  return there->verdict == look::Verdict::kBad && item.verdict != look::Verdict::kBad;
}

std::size_t count_lacking(const Diagnosis& diagnosis) {
  std::size_t count = 0;
  for (const look::Item& item : diagnosis.primary.items) count += backup_lacks(diagnosis, item) ? 1U : 0U;
  return count;
}

// A refresh takes what only the backup has, so it is no part of a repair then.
bool backup_has_more(const Diagnosis& diagnosis) {
  for (const look::Item& item : diagnosis.backup.items) {
    if (look::is_version_record(item)) continue;
    const look::Item* there = look::find_exact(diagnosis.primary.items, item.table.view(), item.key.view());
    if (there == nullptr) return true;
    if (there->verdict == look::Verdict::kBad && item.verdict == look::Verdict::kGood) return true;
  }
  return false;
}

// Between files that are both whole.
void plan_items(const Diagnosis& diagnosis, List<Step>& plan) {
  const std::size_t lacking = count_lacking(diagnosis);
  if (lacking == 0 || backup_has_more(diagnosis)) return;
  // The item of the journal, and that alone: as the library does at its start.
  if (lacking == 1 && diagnosis.cut_write_told) {
    // Cut before it was complete, it keeps the old value.
    if (diagnosis.last_write.state == WS_WRITE_DONE) plan.push(kFinishWrite);
    return;
  }
  plan.push(kRefreshBackup);
}

List<Step> plan_for(const Diagnosis& diagnosis) {
  List<Step> plan;
  const Health journal = diagnosis.journal.health;
  if (journal == Health::kNotDatabase || (journal == Health::kCorrupt && !diagnosis.last_write.found))
    plan.push(kDeleteJournal);
  const bool fresh = is_empty(diagnosis.primary) && is_empty(diagnosis.backup);
  if (replaceable(diagnosis.primary) && !fresh) {
    if (usable(diagnosis.backup)) {
      plan.push({Step::kReplace, File::kPrimary, File::kBackup});
    } else if (replaceable(diagnosis.backup) && usable(diagnosis.factory)) {
      plan.push({Step::kReplace, File::kPrimary, File::kFactory});
      plan.push(kRefreshBackup);
    }
  } else if (usable(diagnosis.primary) && replaceable(diagnosis.backup)) {
    plan.push(kRefreshBackup);
  } else if (usable(diagnosis.primary) && usable(diagnosis.backup)) {
    plan_items(diagnosis, plan);
  }
  return plan;
}

// What could not be looked into may hold all that is missing elsewhere: a program has it locked, or the
// user may not read it.
int refuse_closed(const Diagnosis& diagnosis, const Places& named) {
  const bool needs_factory = replaceable(diagnosis.primary) && replaceable(diagnosis.backup) &&
                             !(is_empty(diagnosis.primary) && is_empty(diagnosis.backup));
  const struct {
    const look::FileReport& report;
    const Text& path;
    bool needed;
  } files[] = {{diagnosis.primary.report, named.primary, true},
               {diagnosis.backup.report, named.backup, true},
               {diagnosis.journal, named.journal, true},
               {diagnosis.factory.report, named.factory, needs_factory}};
  for (const auto& [report, path, needed] : files) {
    if (!needed || !is_closed(report)) continue;
    const char* why =
        report.health == Health::kWriteAhead ? look::health_name(report.health) : report.why.c_str();
    return fail("%s cannot be read: %s; nothing was repaired", path.c_str(), why);
  }
  return kDone;
}

// ---- copies of everything -------------------------------------------------------

constexpr const char* kSuffixes[] = {"", "-journal", "-wal", "-shm"};

// Empty, or why not.
Text copy_file(const char* from, const char* to) {
  // Without waiting where a pipe stands in the place of a file.
  const int source = open(from, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (source < 0) return Text(std::strerror(errno));
  struct stat entry {};
  if (fstat(source, &entry) != 0 || !S_ISREG(entry.st_mode)) {
    close(source);
    return Text("not a file");
  }
  const int target = open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, entry.st_mode & 0777);
  bool copied = target >= 0;
  int error = errno;
  while (copied) {
    char part[16384];
    const ssize_t count = read(source, part, sizeof part);
    if (count == 0) break;
    errno = ENOSPC;  // of a write that was cut short
    copied = count > 0 && write(target, part, static_cast<std::size_t>(count)) == count;
    error = errno;
  }
  if (copied && fsync(target) != 0) {
    copied = false;
    error = errno;
  }
  if (target >= 0 && close(target) != 0 && copied) {
    copied = false;
    error = errno;
  }
  close(source);
  return copied ? Text() : Text(std::strerror(error));
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

// The file that a write through the path would reach, which need not exist yet: a link that an
// integrator has placed stays a link, as in the library.
Text real_path(const Text& path) {
  constexpr int kMostLinks = 40;
  if (char* real = realpath(path.c_str(), nullptr)) {
    Text found{std::string_view(real)};
    std::free(real);
    return found;
  }
  Text at(path.view());
  for (int followed = 0; followed < kMostLinks; ++followed) {
    char link[4096] = {};
    if (readlink(at.c_str(), link, sizeof link - 1) < 0) return at;
    at = link[0] == '/' ? Text(std::string_view(link)) : textf("%s%s", directory_of(at).c_str(), link);
  }
  return Text(path.view());
}

Places real_places(const Arguments& arguments) {
  Places places = arguments.places();
  for (Text* path : {&places.primary, &places.backup, &places.journal}) *path = real_path(*path);
  return places;
}

// A directory of its own for what was there before.
class Keep {
 public:
  // Named as the user calls the files.
  explicit Keep(const Places& places) : places_(places) {}

  const Text& name() const { return name_; }

  // Everything that a repair may touch, the evidence beside it too. Raw bytes: no connection is open.
  int take(const Places& real) {
    if (const int code = make_directory(); code != kDone) return code;
    for (const File file : {File::kPrimary, File::kBackup, File::kJournal}) {
      for (const char* suffix : kSuffixes) {
        const Text from = textf("%s%s", path_of(real, file).c_str(), suffix);
        if (!look::exists(from.c_str())) continue;
        const Text why = copy_file(from.c_str(), copy_of(file, suffix).c_str());
        if (why.empty()) continue;
        remove();
        return fail("%s could not be copied to %s: %s; nothing was repaired", from.c_str(),
                    directory_.c_str(), why.c_str());
      }
    }
    if (sync_directory(directory_.c_str()) && sync_directory(directory_of(places_.primary).c_str()))
      return kDone;
    const int reason = errno;
    remove();
    return fail("%s is not on storage: %s; nothing was repaired", directory_.c_str(), std::strerror(reason));
  }

 private:
  int make_directory() {
    const time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    char stamp[40] = {};
    strftime(stamp, sizeof stamp, "vexadm-repair_%Y-%m-%d_%H_%M_%S", &local);
    // More than one within a second.
    constexpr int kMostAlike = 99;
    for (int number = 1; number <= kMostAlike; ++number) {
      name_ = number == 1 ? Text(std::string_view(stamp)) : textf("%s_%d", stamp, number);
      directory_ = textf("%s%s", directory_of(places_.primary).c_str(), name_.c_str());
      if (mkdir(directory_.c_str(), 0700) == 0) return kDone;
      if (errno != EEXIST) break;
    }
    return fail("%s: %s; nothing was repaired", directory_.c_str(), std::strerror(errno));
  }

  Text copy_of(File file, const char* suffix) const {
    return textf("%s/%s%s", directory_.c_str(), Text(name_of(path_of(places_, file))).c_str(), suffix);
  }

  // A copy that is not complete takes room, and misleads.
  void remove() {
    for (const File file : {File::kPrimary, File::kBackup, File::kJournal}) {
      for (const char* suffix : kSuffixes) unlink(copy_of(file, suffix).c_str());
    }
    rmdir(directory_.c_str());
  }

  const Places& places_;
  Text name_;
  Text directory_;
};

// ---- steps ------------------------------------------------------------------------

// What belongs to a file that is gone must not be applied to the one that comes.
void remove_companions(const Text& path) {
  for (const char* suffix : {"-journal", "-wal", "-shm"}) unlink(textf("%s%s", path.c_str(), suffix).c_str());
}

bool write_image(const char* path, const unsigned char* image, sqlite3_int64 size, const struct stat* old) {
  unlink(path);
  const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                      old != nullptr ? old->st_mode & 0777 : 0644);
  if (fd < 0) return false;
  bool written = true;
  for (sqlite3_int64 at = 0; written && at < size;) {
    const ssize_t count = write(fd, image + at, static_cast<std::size_t>(size - at));
    written = count > 0;
    at += count;
  }
  if (written && old != nullptr) {
    // An ordinary user cannot give files away; the content matters more than its owner.
    if (fchown(fd, old->st_uid, old->st_gid) != 0) errno = 0;
    written = fchmod(fd, old->st_mode & 07777) == 0;
  }
  written = written && fsync(fd) == 0;
  return close(fd) == 0 && written;
}

// By the settled content of the other, as the library's own copies have it.
int replace(const Text& target, const Text& from) {
  const std::string_view name = name_of(target);
  const Text temporary =
      textf("%s.vexadm-copy-%s", directory_of(target).c_str(), Text(part(name, 0, name.find(".db"))).c_str());
  look::Database source;
  sqlite3_int64 size = 0;
  unsigned char* image =
      source.open(from.c_str()) == SQLITE_OK ? sqlite3_serialize(source.get(), "main", &size, 0) : nullptr;
  if (image == nullptr) return fail("%s could not be read: %s", from.c_str(), source.why().c_str());
  struct stat old {};
  const bool replaces = stat(target.c_str(), &old) == 0;
  const bool written = write_image(temporary.c_str(), image, size, replaces ? &old : nullptr);
  int reason = errno;
  sqlite3_free(image);
  source.close();
  if (written) {
    remove_companions(target);
    if (rename(temporary.c_str(), target.c_str()) == 0 && sync_directory(directory_of(target).c_str()))
      return kDone;
    reason = errno;
  }
  unlink(temporary.c_str());
  return fail("%s could not be replaced: %s", target.c_str(), std::strerror(reason));
}

// A record that the library writes as it stands there.
bool is_of_this_library(const look::Item* record) {
  return record != nullptr && record->verdict == look::Verdict::kGood && record->has_id &&
         record->type == VEXA_DM_U32 && record->value.size() == sizeof(uint32_t) &&
         number_of(record->value.view()) == VEXA_SCHEMA_VERSION;
}

// The library copies the primary over the backup behind each write, and to write the version that is
// there changes nothing. Another version must stay what it is: there the file is copied here.
int refresh_backup(const Places& places) {
  List<look::Item> items;
  Text why;
  {
    look::Database primary;
    if (primary.open(places.primary.c_str()) == SQLITE_OK) look::read_items(primary, items, why);
  }
  const look::Item* record = look::find(items, look::kVersionTable, look::kVersionKey);
  if (!is_of_this_library(record)) return replace(places.backup, places.primary);
  const int32_t result = dm_pal_write(record->table.c_str(), static_cast<uint32_t>(record->id),
                                      record->key.c_str(), static_cast<int32_t>(record->type),
                                      record->value.c_str(), static_cast<int32_t>(record->value.size()));
  if (result == 0) return kDone;
  tell_failures();
  return fail("the backup could not be made from the primary: the library says %d", result);
}

int delete_file(const Text& path) {
  if (unlink(path.c_str()) != 0)
    return fail("%s could not be deleted: %s", path.c_str(), std::strerror(errno));
  remove_companions(path);
  return kDone;
}

int carry_out(const Step& step, const Places& places) {
  switch (step.action) {
    case Step::kDelete:
      return delete_file(path_of(places, step.file));
    case Step::kReplace:
      return replace(path_of(places, step.file), path_of(places, step.from));
    case Step::kCopyItem:
      return dm_sqlite_check_database() == 0 ? kDone : kFailed;
    default:
      return refresh_backup(places);
  }
}

// Adds what was done to the list.
int carry_out(const List<Step>& plan, const Places& places, List<Step>& done) {
  for (const Step& step : plan) {
    const int code = carry_out(step, places);
    const bool item = step.action == Step::kCopyItem;
    if (code == kDone) done.push(step);
    if (code != kDone && !item) return code;
    // The journal may say other than the primary has.
    if (item && (code != kDone || count_lacking(look::diagnose(places)) > 0)) {
      if (refresh_backup(places) != kDone) return kFailed;
      done.push(kRefreshBackup);
    }
  }
  return kDone;
}

// ---- what is said -----------------------------------------------------------------

enum class Tense { kWould, kDid };

void tell_steps(const List<Step>& steps, const Places& named, Tense tense) {
  const bool would = tense == Tense::kWould;
  Text out;
  for (const Step& step : steps) {
    const char* file = path_of(named, step.file).c_str();
    const char* from = path_of(named, step.from).c_str();
    switch (step.action) {
      case Step::kDelete:
        out.addf("%s %s\n", would ? "would delete" : "deleted", file);
        break;
      case Step::kReplace:
        out.addf("%s %s by a copy of %s\n", would ? "would replace" : "replaced", file, from);
        break;
      case Step::kCopyItem:
        out.addf("%s the item of the last write from primary to backup\n", would ? "would copy" : "copied");
        break;
      case Step::kCopy:
        out.addf("%s %s over %s\n", would ? "would copy" : "copied", from, file);
        break;
    }
  }
  print(out);
}

// Done: no step is open, and no fault is left.
void print_json(const Text& kept_in, const List<Step>& steps, const Places& named, bool done) {
  static constexpr const char* kActions[] = {"delete", "replace", "copy_item", "copy"};
  Json json;
  json.object().key("kept_in");
  kept_in.empty() ? json.null() : json.text(kept_in.view());
  json.key("steps").array();
  for (const Step& step : steps) {
    json.object().text("action", kActions[step.action]).text("file", path_of(named, step.file).view());
    json.key("from");
    step.from == File::kNone ? json.null() : json.text(path_of(named, step.from).view());
    json.end();
  }
  json.end().boolean("done", done).end();
}

int without_a_step(const Arguments& arguments, const Places& named, bool faulty) {
  if (arguments.json) print_json(Text(), List<Step>(), named, !faulty);
  if (faulty) return fail("there are faults that no copy can mend; vexadm check tells what a person can do");
  if (!arguments.json) note(arguments, "nothing to repair");
  return kDone;
}

int repair(const Arguments& arguments, const Places& named) {
  const Places real = real_places(arguments);
  const Diagnosis diagnosis = look::diagnose(real);
  if (const int code = refuse_closed(diagnosis, named); code != kDone) return code;
  const List<Step> plan = plan_for(diagnosis);
  const Places entered = arguments.places();
  Keep keep(entered);
  if (const int code = keep.take(real); code != kDone) return code;
  const Text kept_in = textf("%s%s", directory_of(named.primary).c_str(), keep.name().c_str());
  if (!arguments.json) print(textf("everything as it was is kept in %s\n", kept_in.c_str()));
  List<Step> done;
  const int code = carry_out(plan, real, done);
  const bool healthy = code == kDone && !look::diagnose(real).faulty();
  if (arguments.json) {
    print_json(kept_in, done, named, healthy);
  } else {
    tell_steps(done, named, Tense::kDid);
  }
  if (code != kDone || healthy) return code;
  return fail("there are faults left; vexadm check tells what a person can do");
}

int run_repair(Arguments& arguments) {
  // As the user names them: with --root the tree is the root from enter_store() on.
  const Places named = arguments.places();
  {
    const Diagnosis diagnosis = look::diagnose(named);
    if (const int code = refuse_closed(diagnosis, named); code != kDone) return code;
    const List<Step> plan = plan_for(diagnosis);
    if (plan.empty()) return without_a_step(arguments, named, diagnosis.faulty());
    if (arguments.has("--dry-run")) {
      arguments.json ? print_json(Text(), plan, named, false) : tell_steps(plan, named, Tense::kWould);
      return kDone;
    }
  }
  if (const int code = enter_store(arguments); code != kDone) return code;
  return repair(arguments, named);
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
    true,
    run_repair,
};

}  // namespace cli
