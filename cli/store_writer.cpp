// SPDX-License-Identifier: MIT
#include "store_writer.h"

#include <vexadm/data_manager.h>
#include <vexadm/log.h>
#include <vexadm/storage.h>

#include <cstring>

namespace cli {
namespace {

constexpr std::size_t kMostKept = 16;

// Never destroyed: a destructor at the end needs the C++ run-time library on 32-bit ARM.
Text* g_failures[kMostKept];
std::size_t g_failure_count = 0;

// The library's own line: time, level, thread, function, message. The last field is for people.
void keep_failure(const char* line) {
  if (std::strstr(line, "=ERR=") == nullptr && std::strstr(line, "=CRT=") == nullptr) return;
  // Each good write says this at error level.
  if (std::strstr(line, "ERROR: cp ") != nullptr) return;
  const char* function = std::strstr(line, "] | ");
  const char* message = function != nullptr ? std::strstr(function + 4, " | ") : nullptr;
  if (message == nullptr || g_failure_count == kMostKept) return;
  Text& kept = *new (checked_alloc(1, sizeof(Text))) Text(message + 3);
  g_failures[g_failure_count++] = &kept;
  while (!kept.empty() && (kept.view().back() == '\n' || kept.view().back() == ' '))
    kept.shorten(kept.size() - 1);
}

}  // namespace

void hear_library() {
  set_print_interface(keep_failure);
  vexa_set_log_level(3);
}

int enter_store(Arguments& arguments, Dated dated) {
  const char* backup = arguments.backup_store != nullptr ? arguments.backup_store : arguments.store;
  if (arguments.root != nullptr) {
    Text why;
    if (!enter_device_tree(arguments.root, arguments.store, backup, dated, why))
      return fail("--root %s: %s", arguments.root, why.c_str());
    arguments.root = nullptr;  // it is the root now
  }
  hear_library();
  if (vexa_dm_reg_store_area(VEXA_DM_BACKEND_SQLITE, arguments.store, backup) != nullptr) {
    return fail("--store is longer than the library takes");
  }
  return kDone;
}

void tell_failures() {
  for (std::size_t i = 0; i < g_failure_count; ++i) fail("library: %s", g_failures[i]->c_str());
}

}  // namespace cli
