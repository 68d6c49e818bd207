// SPDX-License-Identifier: MIT
#include "commands/repair_steps.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <vexadm/data_manager.h>
#include <vexadm/storage.h>

#include "base/value.h"
#include "commands/repair_files.h"
#include "store_writer.h"

namespace cli::repair {
namespace {

using look::Places;

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
  const int reason = errno;
  if (close(fd) != 0) return false;
  errno = reason;
  return written;
}

// By the settled content of the other, as the library's own copies have it.
int replace(const Text& target, const Text& from, bool& touched) {
  const std::string_view name = name_of(target);
  const Text temporary = textf("%s.vexadm-copy-%s", look::directory_of(target).c_str(),
                               Text(part(name, 0, name.find(".db"))).c_str());
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
    touched = true;
    remove_companions(target);
    if (rename(temporary.c_str(), target.c_str()) == 0 && sync_directory(look::directory_of(target).c_str()))
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
int refresh_backup(const Places& places, bool& touched) {
  List<look::Item> items;
  Text why;
  {
    look::Database primary;
    if (primary.open(places.primary.c_str()) == SQLITE_OK) look::read_items(primary, items, why);
  }
  const look::Item* record = look::find(items, look::kVersionTable, look::kVersionKey);
  if (!is_of_this_library(record)) return replace(places.backup, places.primary, touched);
  touched = true;
  const int32_t result = dm_pal_write(record->table.c_str(), static_cast<uint32_t>(record->id),
                                      record->key.c_str(), static_cast<int32_t>(record->type),
                                      record->value.c_str(), static_cast<int32_t>(record->value.size()));
  if (result == 0) return kDone;
  tell_failures();
  return fail("the backup could not be made from the primary: the library says %d", result);
}

int delete_file(const Text& path, bool& touched) {
  if (unlink(path.c_str()) != 0)
    return fail("%s could not be deleted: %s", path.c_str(), std::strerror(errno));
  touched = true;
  remove_companions(path);
  return kDone;
}

int carry_out(const Step& step, const Places& places, bool& touched) {
  switch (step.action) {
    case Step::kDelete:
      return delete_file(path_of(places, step.file), touched);
    case Step::kReplace:
      return replace(path_of(places, step.file), path_of(places, step.from), touched);
    case Step::kCopyItem:
      touched = true;
      return dm_sqlite_check_database() == 0 ? kDone : kFailed;
    default:
      return refresh_backup(places, touched);
  }
}

}  // namespace

int carry_out(const List<Step>& plan, const Places& places, Outcome& out) {
  for (const Step& step : plan) {
    const int code = carry_out(step, places, out.touched);
    const bool item = step.action == Step::kCopyItem;
    if (code == kDone) out.done.push(step);
    if (code != kDone && !item) return code;
    // The journal may say other than the primary has.
    if (item && (code != kDone || count_lacking(look::diagnose(places)) > 0)) {
      if (refresh_backup(places, out.touched) != kDone) return kFailed;
      out.done.push(kRefreshBackup);
    }
  }
  return kDone;
}

}  // namespace cli::repair
