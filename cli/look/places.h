// SPDX-License-Identifier: MIT
// Where the files of a store are.
#ifndef VEXADM_CLI_PLACES_H
#define VEXADM_CLI_PLACES_H

#include "base/text.h"

namespace cli::look {

struct Places {
  Text primary;
  Text backup;
  Text journal;
  Text defaults;
  Text factory;
  Text export_csv;
  Text dated;  // directory of the copies that cleans leave, with a slash behind

  // Below root; the first three in their own directories where these are given.
  static Places below(std::string_view root, const char* store, const char* backup_store);
};

// The directory of a file, with a slash behind.
Text directory_of(const Text& path);

// Names of the copies that cleans have left: of whatever the library counts as such when it numbers and
// rotates them. errno is 0, or says why some may be missing; no directory is no copies.
List<Text> dated_copies(const Places& places);

// A store named by one argument: a device tree, a directory with the files, or one database file,
// which then is both primary and backup.
Places places_of_argument(const char* path);

}  // namespace cli::look

#endif
