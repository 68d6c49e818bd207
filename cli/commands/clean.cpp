// SPDX-License-Identifier: MIT
// clean: the library's, with a copy that is sure to be one, and to its end.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <vexadm/data_manager.h>
#include <vexadm/storage.h>

#include "caught_output.h"
#include "commands/repair_files.h"
#include "look/diagnosis.h"
#include "store_writer.h"

namespace cli {
namespace {

using repair::sync_directory;

bool make_directories(const Text& path) {
  for (std::size_t end = 1; end < path.size(); ++end) {
    if (path.view()[end] != '/') continue;
    if (mkdir(Text(part(path.view(), 0, end)).c_str(), 0755) != 0 && errno != EEXIST) return false;
  }
  return true;
}

// Without the number, which changes with the copy's age.
std::string_view stamp_of(const Text& name) { return part(name.view(), 0, name.view().rfind('.')); }

bool same_content(const Text& a, const Text& b) {
  std::FILE* files[] = {std::fopen(a.c_str(), "re"), std::fopen(b.c_str(), "re")};
  bool same = files[0] != nullptr && files[1] != nullptr;
  for (std::size_t count = 1; same && count > 0;) {
    char blocks[2][4096];
    count = std::fread(blocks[0], 1, sizeof blocks[0], files[0]);
    same = std::fread(blocks[1], 1, sizeof blocks[1], files[1]) == count &&
           std::memcmp(blocks[0], blocks[1], count) == 0;
  }
  for (std::FILE* file : files) {
    if (file == nullptr) continue;
    same = std::ferror(file) == 0 && same;
    std::fclose(file);
  }
  return same;
}

// The library makes its copy by a shell command, and deletes the store whether there was room for it
// or not. So a copy is on storage before it is called, and stays until the library's has been seen.
class OwnCopy {
 public:
  explicit OwnCopy(const look::Places& places)
      : places_(places), path_(textf("%svexadm-clean-copy", places.dated.c_str())) {}

  // kDone, or kFailed after it has said why.
  int make() {
    if (!make_directories(places_.dated)) {
      return fail("%s: %s; no copy can be made, so nothing was cleaned", places_.dated.c_str(),
                  std::strerror(errno));
    }
    if (!keep_earlier()) {
      return fail("%s, which a clean that was cut has left, cannot be kept: %s; nothing was cleaned",
                  path_.c_str(), std::strerror(errno));
    }
    before_ = look::dated_copies(places_);
    if (const int code = write(); code != kDone) {
      remove();
      return code;
    }
    const look::FileReport report = look::inspect(path_.c_str());
    if (report.health == look::Health::kHealthy) return kDone;
    remove();
    return fail(
        "%s is damaged, and so would be its copy: %s; nothing was cleaned. vexadm repair mends it first, "
        "without --backup it is cleaned as it is",
        places_.primary.c_str(), report.why.c_str());
  }

  void remove() const { unlink(path_.c_str()); }

  // Behind the library's call: sees to it that there is a dated copy.
  int settle(const Arguments& arguments) const {
    const Text made = find_new();
    const bool healthy = !made.empty() && is_copy(in_directory(made));
    if (healthy && same_content(in_directory(made), path_)) {
      remove();
      return kDone;
    }
    // A healthy one with other content is that of a program which wrote meanwhile: both are kept.
    const Text name = !made.empty() && !healthy ? Text(made.view()) : next_name();
    if (rename(path_.c_str(), in_directory(name).c_str()) != 0 || !sync_directory(places_.dated.c_str())) {
      return fail("the copy could not be renamed: %s; it is %s", std::strerror(errno), path_.c_str());
    }
    note(arguments, "the library's own copy %s; %s%s was made by vexadm",
         healthy        ? "holds what a program wrote meanwhile"
         : made.empty() ? "is not there"
                        : "was cut",
         places_.dated.c_str(), name.c_str());
    return kDone;
  }

 private:
  // The shell's cp takes a link for a link, and on a full disk an empty file for a copy.
  static bool is_copy(const Text& path) {
    struct stat entry {};
    return lstat(path.c_str(), &entry) == 0 && S_ISREG(entry.st_mode) && entry.st_size > 0 &&
           look::inspect(path.c_str()).health == look::Health::kHealthy;
  }

  // What a clean that was killed has left may be the only copy of a store that is gone.
  bool keep_earlier() const {
    if (!is_copy(path_)) return true;
    for (const Text& name : look::dated_copies(places_)) {
      if (same_content(in_directory(name), path_)) return true;
    }
    return rename(path_.c_str(), in_directory(next_name()).c_str()) == 0;
  }

  Text in_directory(const Text& name) const { return textf("%s%s", places_.dated.c_str(), name.c_str()); }

  // The settled content: a transaction that was cut is not in it.
  int write() {
    look::Database source;
    sqlite3_int64 size = 0;
    unsigned char* image = source.open(places_.primary.c_str()) == SQLITE_OK
                               ? sqlite3_serialize(source.get(), "main", &size, 0)
                               : nullptr;
    if (image == nullptr) {
      return fail(
          "%s cannot be read: %s; nothing was cleaned. vexadm check tells more, without --backup it is "
          "cleaned as it is",
          places_.primary.c_str(), source.why().c_str());
    }
    remove();  // what is kept already, or was never whole
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    bool written = fd >= 0;
    for (sqlite3_int64 at = 0; written && at < size;) {
      const ssize_t count = ::write(fd, image + at, static_cast<std::size_t>(size - at));
      written = count > 0;
      at += count;
    }
    written = written && fsync(fd) == 0;
    const int reason = errno;
    if (fd >= 0) close(fd);
    sqlite3_free(image);
    if (written && sync_directory(places_.dated.c_str())) return kDone;
    return fail("%s: %s; no copy can be made, so nothing was cleaned", path_.c_str(),
                std::strerror(written ? errno : reason));
  }

  // The name of the copy that has come since make(); empty when there is none.
  Text find_new() const {
    const List<Text> now = look::dated_copies(places_);
    for (const Text& name : now) {
      const auto same_stamp = [&](const Text& old) { return stamp_of(old) == stamp_of(name); };
      if (std::none_of(before_.begin(), before_.end(), same_stamp)) return Text(name.view());
    }
    // Of two cleans in one second the stamps are the same.
    for (const Text& name : now) {
      if (same_content(in_directory(name), path_)) return Text(name.view());
    }
    return Text();
  }

  // As the library names them: date and time, and the number by age.
  Text next_name() const {
    int number = 0;
    for (const Text& name : look::dated_copies(places_)) {
      const char last = name.view().back();
      if (last >= '0' && last <= '9') number = std::max(number, last - '0');
    }
    return textf("%s.db%d", local_time_in_names().c_str(), number + 1);
  }

  const look::Places& places_;
  Text path_;
  List<Text> before_;
};

// Under the file's lock where it can be had, as the library does: a transaction of another program
// would go on in a file without a name.
bool remove_database(const Text& path) {
  sqlite3* database = nullptr;
  int code = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
  if (code == SQLITE_OK) {
    sqlite3_busy_timeout(database, 3000);
    code = sqlite3_exec(database, "begin exclusive", nullptr, nullptr, nullptr);
  }
  const bool removed = unlink(path.c_str()) == 0 || errno == ENOENT;
  const int reason = errno;
  // It must not meet the next file of the name.
  if (removed && code != SQLITE_BUSY) unlink(textf("%s-journal", path.c_str()).c_str());
  sqlite3_close(database);
  errno = reason;
  return removed;
}

// The library stops at the first of the three that is not there. A clean that was cut leaves it so.
int remove_the_rest(const look::Places& places) {
  int code = kDone;
  for (const Text* path : {&places.primary, &places.backup, &places.journal}) {
    if (!look::exists(path->c_str())) continue;
    if (!remove_database(*path)) {
      code = fail("%s could not be deleted: %s", path->c_str(), std::strerror(errno));
    } else if (!sync_directory(look::directory_of(*path).c_str())) {
      code =
          fail("%s is deleted, and may be back after a power cut: %s", path->c_str(), std::strerror(errno));
    }
  }
  return code;
}

int clean(const Arguments& arguments, const look::Places& places, OwnCopy* copy) {
  const bool had_primary = look::exists(places.primary.c_str());
  // The backend's own function: a handle would begin with a start-up, which writes.
  char with_copy[] = "copy";
  {
    CaughtOutput caught;
    const uint32_t result = dm_sqlite_clean(copy != nullptr ? with_copy : nullptr);
    if (result != 0 && had_primary && look::exists(places.primary.c_str())) {
      caught.tell();
      tell_failures();
      if (copy != nullptr) copy->remove();
      return fail("nothing was cleaned: %s could not be deleted, or the library could not begin",
                  places.primary.c_str());
    }
  }
  const int rest = remove_the_rest(places);
  const int copied = copy != nullptr ? copy->settle(arguments) : kDone;
  return rest != kDone ? rest : copied;
}

int run_clean(Arguments& arguments) {
  const look::Places named = arguments.places();
  if (!arguments.has("--yes")) {
    return wrong_usage("this deletes %s, its backup and its journal; say --yes if that is meant",
                       named.primary.c_str());
  }
  const bool with_copy = arguments.has("--backup");
  if (!look::exists(named.primary.c_str())) {
    if (!look::exists(named.backup.c_str()) && !look::exists(named.journal.c_str())) {
      return fail("%s is not there, nor are its backup and its journal: nothing was cleaned",
                  named.primary.c_str());
    }
    if (with_copy) {
      return fail(
          "%s is not there to be copied: nothing was cleaned. vexadm repair makes it from the backup; "
          "without "
          "--backup the rest is deleted",
          named.primary.c_str());
    }
  }
  if (const int code = enter_store(arguments, with_copy ? Dated::kMade : Dated::kAsItIs); code != kDone)
    return code;
  const look::Places places = arguments.places();
  OwnCopy copy(places);
  if (with_copy) {
    if (const int code = copy.make(); code != kDone) return code;
  }
  if (const int code = clean(arguments, places, with_copy ? &copy : nullptr); code != kDone) return code;
  note(arguments, "clean; programs that run now write into new files, or fail, until they start again");
  return kDone;
}

constexpr Option kCleanOptions[] = {
    {"--backup", nullptr, "leave a dated copy of the primary first; vexadm backups lists them"},
    {"--yes", nullptr, "meant so"},
};

}  // namespace

extern const Command kClean = {
    "clean",
    "[--backup] --yes",
    "Deletes primary, backup and journal: every item is back at its default",
    "Stored defaults stay. With --backup nothing is deleted where no copy can be made. Stop the\n"
    "programs of the router first.",
    "  $ vexadm clean --backup --yes",
    kCleanOptions,
    0,
    0,
    false,
    run_clean,
};

}  // namespace cli
