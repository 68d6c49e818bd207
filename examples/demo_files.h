// SPDX-License-Identifier: MIT
// The device's files as the demonstration handles them, from outside the library.
//
// None of this may run in a process that uses the library's storage: closing a descriptor
// on a database file drops the locks that SQLite holds on it in that process.
#ifndef VEXADM_EXAMPLES_DEMO_FILES_H
#define VEXADM_EXAMPLES_DEMO_FILES_H

#include <string>
#include <string_view>
#include <vector>

namespace demo {

inline constexpr char kPrimary[] = "/data/config.db";
inline constexpr char kBackup[] = "/data/configbak.db";
inline constexpr char kJournal[] = "/data/state.db";
inline constexpr char kDefaults[] = "/data/DefItems.db";
inline constexpr char kFactory[] = "/vexanvbak/data/config.db";
inline constexpr char kRotation[] = "/mnt/vendor/nvdata";

std::string read_file(const std::string& path);
bool write_file(const std::string& path, std::string_view bytes);
bool same_content(const std::string& one, const std::string& other);

// Names in a directory, sorted.
std::vector<std::string> names_in(const std::string& directory);
// "config.db (12 KiB), state.db (8 KiB)", or "nothing".
std::string contents_of(const std::string& directory);

// Puts the healthy primary into the factory area, as the production line would.
bool provision_factory_copy();

// Overwrites the head of the first page's tree, behind the 100 bytes that make the file a
// database: SQLite still opens the file, and finds it malformed once it prepares a statement.
bool damage(const std::string& path);

}  // namespace demo

#endif
