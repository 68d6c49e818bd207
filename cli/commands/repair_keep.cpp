// SPDX-License-Identifier: MIT
#include "commands/repair_keep.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "command.h"
#include "commands/repair_files.h"

namespace cli::repair {
namespace {

constexpr const char* kSuffixes[] = {"", "-journal", "-wal", "-shm"};

// 0, or errno.
int copy_bytes(int source, int target) {
  for (;;) {
    char part[16384];
    const ssize_t count = read(source, part, sizeof part);
    if (count <= 0) return count == 0 ? 0 : errno;
    const ssize_t written = write(target, part, static_cast<std::size_t>(count));
    if (written != count) return written < 0 ? errno : ENOSPC;
  }
}

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
  if (target < 0) {
    Text why(std::strerror(errno));
    close(source);
    return why;
  }
  int error = copy_bytes(source, target);
  if (error == 0 && fsync(target) != 0) error = errno;
  if (close(target) != 0 && error == 0) error = errno;
  close(source);
  return error == 0 ? Text() : Text(std::strerror(error));
}

}  // namespace

int Keep::take(const look::Places& real) {
  if (const int code = make_directory(); code != kDone) return code;
  for (const File file : {File::kPrimary, File::kBackup, File::kJournal}) {
    for (const char* suffix : kSuffixes) {
      const Text from = textf("%s%s", path_of(real, file).c_str(), suffix);
      if (!look::exists(from.c_str())) continue;
      const Text why = copy_file(from.c_str(), copy_of(file, suffix).c_str());
      if (why.empty()) continue;
      remove();
      return fail("%s could not be copied to %s: %s; nothing was repaired", from.c_str(), directory_.c_str(),
                  why.c_str());
    }
  }
  if (sync_directory(directory_.c_str()) && sync_directory(look::directory_of(places_.primary).c_str()))
    return kDone;
  const int reason = errno;
  remove();
  return fail("%s is not on storage: %s; nothing was repaired", directory_.c_str(), std::strerror(reason));
}

int Keep::make_directory() {
  const Text stamp = textf("vexadm-repair_%s", local_time_in_names().c_str());
  // More than one within a second.
  constexpr int kMostAlike = 99;
  for (int number = 1; number <= kMostAlike; ++number) {
    name_ = number == 1 ? Text(stamp.view()) : textf("%s_%d", stamp.c_str(), number);
    directory_ = textf("%s%s", look::directory_of(places_.primary).c_str(), name_.c_str());
    if (mkdir(directory_.c_str(), 0700) == 0) return kDone;
    if (errno != EEXIST) break;
  }
  return fail("%s: %s; nothing was repaired", directory_.c_str(), std::strerror(errno));
}

Text Keep::copy_of(File file, const char* suffix) const {
  return textf("%s/%s%s", directory_.c_str(), Text(name_of(path_of(places_, file))).c_str(), suffix);
}

void Keep::remove() {
  for (const File file : {File::kPrimary, File::kBackup, File::kJournal}) {
    for (const char* suffix : kSuffixes) unlink(copy_of(file, suffix).c_str());
  }
  rmdir(directory_.c_str());
}

}  // namespace cli::repair
