// SPDX-License-Identifier: MIT
// export and clean: what the library does to whole files.
#include <fcntl.h>
#include <unistd.h>
#include <cstdio>
#include <cstring>

#include <vexadm/data_manager.h>
#include <vexadm/storage.h>

#include "commands/rows.h"
#include "store_writer.h"

namespace cli {
namespace {

// The library says on standard output that it is done, where only the answer belongs.
class SilentOutput {
 public:
  SilentOutput() : saved_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
      dup2(nowhere, STDOUT_FILENO);
      close(nowhere);
    }
  }
  SilentOutput(const SilentOutput&) = delete;
  SilentOutput& operator=(const SilentOutput&) = delete;
  ~SilentOutput() {
    std::fflush(stdout);
    if (saved_ >= 0) {
      dup2(saved_, STDOUT_FILENO);
      close(saved_);
    }
  }

 private:
  int saved_;
};

int run_export(Arguments& arguments) {
  const look::Places places = arguments.places();
  {
    look::Database database;
    if (database.open(places.primary.c_str()) != SQLITE_OK) {
      return fail("%s cannot be read: %s; vexadm check tells more", places.primary.c_str(),
                  database.why().c_str());
    }
  }
  if (const int code = enter_store(arguments); code != kDone) return code;
  uint32_t result = 0;
  {
    const SilentOutput silent;
    result = dm_read_all_tabs_from_db(DB_CONFIG);
  }
  if (result != 0) {
    tell_failures();
    return fail("%s was not written: the library says %d", places.export_csv.c_str(),
                static_cast<int32_t>(result));
  }
  print(textf("%s\n", places.export_csv.c_str()));
  return kDone;
}

int run_clean(Arguments& arguments) {
  const look::Places places = arguments.places();
  if (!arguments.has("--yes")) {
    return wrong_usage("this deletes %s, its backup and its journal; say --yes if that is meant",
                       places.primary.c_str());
  }
  if (!look::exists(places.primary.c_str())) {
    return fail("%s is not there: nothing was cleaned", places.primary.c_str());
  }
  const bool with_copy = arguments.has("--backup");
  if (const int code = enter_store(arguments, with_copy ? Dated::kMade : Dated::kAsItIs); code != kDone)
    return code;
  // The backend's own function: a handle would begin with a start-up, which writes.
  char copy[] = "copy";
  const uint32_t result = dm_sqlite_clean(with_copy ? copy : nullptr);
  if (result != 0) {
    tell_failures();
    return fail(
        "not all was cleaned: the library stopped at a file that could not be deleted; vexadm check shows "
        "what is left");
  }
  note(arguments, "clean; programs that run now write into new files, or fail, until they start again");
  return kDone;
}

constexpr Option kCleanOptions[] = {
    {"--backup", nullptr, "leave a dated copy of the primary first; vexadm backups lists them"},
    {"--yes", nullptr, "meant so"},
};

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
    false,
    run_export,
};

extern const Command kClean = {
    "clean",
    "[--backup] --yes",
    "Deletes primary, backup and journal: every item is back at its default",
    "Stored defaults stay. Stop the programs of the router first.",
    "  $ vexadm clean --backup --yes",
    kCleanOptions,
    0,
    0,
    false,
    run_clean,
};

}  // namespace cli
