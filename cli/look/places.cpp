// SPDX-License-Identifier: MIT
#include "look/places.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "look/database.h"
#include "look/tree_path.h"

namespace cli::look {
namespace {

// The directory as the user gave it, the name behind it.
Text in_directory(std::string_view root, const char* directory, std::string_view otherwise,
                  std::string_view name) {
  Text path(directory != nullptr ? directory : otherwise);
  path.add(name);
  if (root.empty()) return path;
  if (path.view()[0] == '/') return path_below(root, path.view());
  Text below("/");
  below.add(path.view());
  return path_below(root, below.view());
}

}  // namespace

Places Places::below(std::string_view root, const char* store, const char* backup_store) {
  Places places;
  if (backup_store == nullptr) backup_store = store;
  places.primary = in_directory(root, store, "/data/", "config.db");
  places.backup = in_directory(root, backup_store, "/data/", "configbak.db");
  places.journal = in_directory(root, store, "/data/", "state.db");
  places.defaults = path_below(root, "/data/DefItems.db");
  places.factory = path_below(root, "/vexanvbak/data/config.db");
  places.export_csv = path_below(root, "/data/ExportCSV.csv");
  places.dated = path_below(root, "/mnt/vendor/nvdata/");
  return places;
}

Text directory_of(const Text& path) {
  const std::size_t slash = path.view().rfind('/');
  return slash == std::string_view::npos ? Text("./") : Text(part(path.view(), 0, slash + 1));
}

List<Text> dated_copies(const Places& places) {
  List<Text> names;
  DIR* directory = opendir(places.dated.c_str());
  if (directory == nullptr) {
    if (errno == ENOENT) errno = 0;
    return names;
  }
  errno = 0;
  while (const dirent* entry = readdir(directory)) {
    if (std::strstr(entry->d_name, ".db") != nullptr) names.push(Text(entry->d_name));
    errno = 0;  // at the end there is none
  }
  const int reason = errno;
  closedir(directory);
  errno = reason;
  return names;
}

Places places_of_argument(const char* path) {
  struct stat entry {};
  if (stat(path, &entry) == 0 && !S_ISDIR(entry.st_mode)) {
    Places places = Places::below("", nullptr, nullptr);
    places.primary = Text(path);
    places.backup = Text(path);
    return places;
  }
  Places tree = Places::below(path, nullptr, nullptr);
  if (exists(tree.primary.c_str()) || exists(tree.backup.c_str())) return tree;
  Text directory(path);
  if (directory.empty() || directory.view().back() != '/') directory.add('/');
  Places flat = Places::below("", directory.c_str(), nullptr);
  // Of a flat copy nothing lies elsewhere.
  flat.defaults = Text(directory.view());
  flat.defaults.add("DefItems.db");
  return flat;
}

}  // namespace cli::look
