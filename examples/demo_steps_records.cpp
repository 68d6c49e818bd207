// SPDX-License-Identifier: MIT
// Records of another kind: a table of parameters, and the watch log.
#include <vexadm/vexadm.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "demo_files.h"
#include "demo_screen.h"
#include "demo_steps.h"
#include "demo_store.h"

namespace demo {
namespace {

// ---- Parameters -------------------------------------------------------------

constexpr const char* kParameterDirectory = "/data/vexa-resource/sqlite3";
constexpr const char* kParameterTable = "wan_settings";
constexpr uint32_t kUser = 0;
constexpr uint32_t kFactory = 1;
constexpr int32_t kMtuNumber = 2;

// The host's own variables, and where they live in the databases.
struct Wan {
  uint8_t enabled;
  uint32_t mtu;
  char apn[32];
};

bool prepare(uint32_t which, const char* file, const char* values) {
  const std::string path = std::string(kParameterDirectory) + "/" + file;
  write_file(path, "");
  const std::string table =
      std::string("create table ") + kParameterTable + "(enabled int, mtu int, apn text)";
  const std::string row = std::string("insert into ") + kParameterTable + " values " + values;
  return vexa_db_exec_cmd(table.c_str(), nullptr, nullptr, which) == 0 &&
         vexa_db_exec_cmd(row.c_str(), nullptr, nullptr, which) == 0;
}

std::string shown(const Wan& wan) {
  std::array<char, 96> text = {};
  std::snprintf(text.data(), text.size(), "enabled %u, mtu %u, apn %s", wan.enabled, wan.mtu, wan.apn);
  return text.data();
}

int tell_parameters(const Arguments&) {
  quiet_log();
  std::filesystem::create_directories(kParameterDirectory);
  // The user's first: the library looks for that one in any case.
  write_file(std::string(kParameterDirectory) + "/factory_info.db", "");
  const bool ready = prepare(kUser, "user_info.db", "(1, 1430, 'internet.example')") &&
                     prepare(kFactory, "factory_info.db", "(1, 1500, 'factory.example')");
  Wan wan = {};
  vexa_db_param parameters[] = {
      {&wan.enabled, "enabled", 0, 1, 1},
      {&wan.mtu, "mtu", 2, 4, kMtuNumber},
      {wan.apn, "apn", 6, sizeof wan.apn, 3},
      {nullptr, nullptr, 0, 0, 0},
  };
  vexa_db_table table = {kParameterTable, parameters};

  say("Other settings are columns of a table, tied to variables of the host. Loaded:");
  const bool loaded = vexa_db_query_db_init_struct(&table) == 0;
  const std::string first = shown(wan);
  show("%s", first.c_str());

  say("The host changes two of its variables and writes them all back; a process that");
  say("loads them next has");
  wan.mtu = 1280;
  std::strcpy(wan.apn, "iot.example");
  const bool written = vexa_db_update_db_from_struct(&table, -1) == 0;
  wan = {};
  vexa_db_query_db_init_struct(&table);
  show("%s", shown(wan).c_str());

  say("Only the MTU goes back to what the factory gave:");
  const bool reloaded = vexa_db_reload_value(&table, kMtuNumber) == 0;
  wan = {};
  vexa_db_query_db_init_struct(&table);
  const std::string last = shown(wan);
  show("%s", last.c_str());
  vexa_db_close_sqlite();

  const std::string expected = "enabled 1, mtu 1500, apn iot.example";
  return report({ready && loaded && written && reloaded && last == expected, expected, last});
}

// ---- The watch log ----------------------------------------------------------

constexpr const char* kWatchFiles[] = {"/data/oem/logs/fwawatchA.log", "/data/oem/logs/fwawatchB.log"};
constexpr std::size_t kLimit = 1048576;

// "A" or "B", the file that has the text.
std::string holder_of(const std::string& text) {
  for (const char* const path : kWatchFiles) {
    if (read_file(path).find(text) != std::string::npos) return path == kWatchFiles[0] ? "A" : "B";
  }
  return "none";
}

void show_sizes() {
  show("fwawatchA.log %7zu bytes, fwawatchB.log %7zu bytes", read_file(kWatchFiles[0]).size(),
       read_file(kWatchFiles[1]).size());
}

int tell_watch_log(const Arguments&) {
  std::filesystem::create_directories("/data/oem/logs");
  say("A trace that may never fill the flash goes to two files in turn, of 1 MiB each:");
  oem_watch("main", __LINE__, "started with reason %d", 3);
  std::string line = read_file(kWatchFiles[0]);
  if (!line.empty()) line.pop_back();
  show("%s", line.c_str());

  const std::string bulk(65536, '.');
  std::string holders;
  for (int round = 0; round < 3; ++round) {
    // Until the file that is written to is over its limit; the next line goes elsewhere.
    for (std::size_t bytes = 0; bytes <= kLimit; bytes += bulk.size())
      oem_watch("bulk", __LINE__, "%s", bulk.c_str());
    const std::string text = "after round " + std::to_string(round);
    oem_watch("main", __LINE__, "%s", text.c_str());
    holders += holder_of(text);
    say("Another mebibyte; the next line stands in fwawatch%s.log:", holder_of(text).c_str());
    show_sizes();
  }

  std::filesystem::create_directories("/vexanv/data");
  write_file("/vexanv/data/fwawatch_option", "0\n");
  const std::size_t before = read_file(kWatchFiles[0]).size() + read_file(kWatchFiles[1]).size();
  oem_watch("main", __LINE__, "nobody reads this");
  const bool silent = before == read_file(kWatchFiles[0]).size() + read_file(kWatchFiles[1]).size();
  say("With a 0 in /vexanv/data/fwawatch_option it is silent%s.", silent ? "" : ", it should be");
  return report({holders == "BAB" && silent, "files B, A, B; silent when switched off",
                 "files " + holders.substr(0, 1) + ", " + holders.substr(1, 1) + ", " + holders.substr(2) +
                     (silent ? "; silent when switched off" : "; not silent")});
}

constexpr std::array kSteps = {
    Step{"Parameters: loaded, changed, one set back to the factory's",
         [] { return run_step({"parameters"}); }},
    Step{"The watch log alternates", [] { return run_step({"watch-log"}); }},
};

constexpr std::array kModes = {
    Mode{"parameters", tell_parameters},
    Mode{"watch-log", tell_watch_log},
};

}  // namespace

std::span<const Step> record_steps() { return kSteps; }
std::span<const Mode> record_modes() { return kModes; }

}  // namespace demo
