// SPDX-License-Identifier: MIT
// A program of damages and calls, over files that the library has made. Everything runs in one
// process: the backend keeps no state between calls but "registered" and "version written", and
// what registering does is done again by start_again().
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vexadm/storage.h>

#include <cstdio>

#include "fuzz_target.h"
#include "store_calls.h"
#include "store_damage.h"

using vexa_fuzz::check;

namespace {

constexpr int kMostSteps = 24;
vexa_fuzz::GoodFiles good;

// Small pages, so that few bytes make many of them. SQLite keeps the size of the first page.
void choose_page_size(const char* path) {
  sqlite3* db = nullptr;
  sqlite3_open(path, &db);
  check(sqlite3_exec(db, "pragma page_size=512; create table first (a); drop table first", nullptr, nullptr,
                     nullptr) == SQLITE_OK,
        "a file cannot be made");
  sqlite3_close(db);
}

void write_items(const char* origin) {
  for (const char* table : {"cfg", "net"}) {
    for (const char* key : {"a", "b", "c", "big"}) {
      std::string value = std::string(origin) + " value of " + table + "." + key;
      if (std::string(key) == "big") value.resize(1300, 'x');
      check(dm_pal_write(table, 5, key, 6, value.data(), static_cast<std::int32_t>(value.size())) == 0,
            "an item cannot be written");
    }
  }
}

}  // namespace

void vexa_fuzz::set_up() {
  mkdir("/vexanvbak/data", 0755);
  for (const char* path : kFiles) choose_page_size(path);
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  write_items("factory");
  make_file(kFiles[4], bytes_of_file(kFiles[0]));
  write_items("current");
  for (const char* key : {"a", "b"}) {
    vexa_dm_item_desc desc = {};
    std::snprintf(desc.table, sizeof desc.table, "cfg");
    std::snprintf(desc.key, sizeof desc.key, "%s", key);
    desc.type = 5;
    const char* const text = "default";
    check(dm_sqlite_def_db_const(1, &desc, &text, 0) == 0, "a default cannot be written");
  }
  good.take();
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  good.put_back();
  {
    const vexa_fuzz::Watch watch;
    vexa_fuzz::Source source(data, size);
    bool sound = true;
    for (int step = 0; source.left() > 0 && step < kMostSteps; ++step) {
      if (source.below(3) != 0) {
        vexa_fuzz::call_the_store(source, sound);
        continue;
      }
      vexa_fuzz::damage(source, good);
      sound = false;
    }
  }
  vexa_fuzz::check_names_in_data();
  return 0;
}
