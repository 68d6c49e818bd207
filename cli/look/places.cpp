// SPDX-License-Identifier: MIT
#include "look/places.h"

#include <sys/stat.h>

#include "look/database.h"

namespace cli::look {
namespace {

Text join(std::string_view root, std::string_view path) {
  Text out(root);
  while (!out.empty() && out.view().back() == '/') out.shorten(out.size() - 1);
  return std::move(out.add(path));
}

Text in_directory(std::string_view root, const char* directory, std::string_view otherwise,
                  std::string_view name) {
  Text out = join(root, directory != nullptr && directory[0] == '/' ? directory : "");
  if (directory == nullptr) {
    out.add(otherwise);
  } else if (directory[0] != '/') {
    if (!out.empty()) out.add('/');
    out.add(directory);
  }
  return std::move(out.add(name));
}

}  // namespace

Places Places::below(std::string_view root, const char* store, const char* backup_store) {
  Places places;
  if (backup_store == nullptr) backup_store = store;
  places.primary = in_directory(root, store, "/data/", "config.db");
  places.backup = in_directory(root, backup_store, "/data/", "configbak.db");
  places.journal = in_directory(root, store, "/data/", "state.db");
  places.defaults = join(root, "/data/DefItems.db");
  places.factory = join(root, "/vexanvbak/data/config.db");
  places.export_csv = join(root, "/data/ExportCSV.csv");
  places.dated = join(root, "/mnt/vendor/nvdata/");
  return places;
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
