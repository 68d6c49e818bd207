// SPDX-License-Identifier: MIT
// For people at a desk: the export, and cleaning with dated backups.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <sstream>

#include "demo_files.h"
#include "demo_items.h"
#include "demo_screen.h"
#include "demo_steps.h"
#include "demo_store.h"

namespace demo {
namespace {

// ---- 9. Export ------------------------------------------------------------

// Lines end in CR, LF and NUL; the text of a string value in a NUL of its own.
std::vector<std::string> readable_lines(std::string bytes) {
  std::erase(bytes, '\0');
  std::erase(bytes, '\r');
  std::vector<std::string> lines;
  std::istringstream text(bytes);
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

int tell_export(const Arguments&) {
  const Store store;
  say("For the service desk, all tables of the primary go into one file, %s:", DB_EXPORT_CSV);
  std::printf("      The library says: ");
  const uint32_t result = dm_read_all_tabs_from_db(DB_CONFIG);
  const std::vector<std::string> lines = readable_lines(read_file(DB_EXPORT_CSV));
  for (const std::string& line : lines) show("%s", line.c_str());
  say("Texts stand as they are; of anything else the first four bytes, as a number.");

  const std::size_t stored = changes().size() + 1;  // and the schema version
  const bool has_name = std::ranges::find(lines, "ssid,12,5,Garden house") != lines.end();
  const bool has_port = std::ranges::find(lines, "admin_port,2,2,8443,") != lines.end();
  const std::size_t rows = lines.empty() ? 0 : lines.size() - 1;
  return report({result == 0 && has_name && has_port && rows == stored,
                 "a header and " + std::to_string(stored) + " rows",
                 (lines.empty() ? "no header and " : "a header and ") + std::to_string(rows) + " rows"});
}

// ---- 10. Clean ------------------------------------------------------------

constexpr int kCleans = 5;

std::string owner_text(int number) { return "owner " + std::to_string(number); }

// The dated copies and whose name for the unit each of them holds, oldest first.
std::string dated_copies(bool print) {
  std::string owners;
  std::vector<std::string> names = names_in(kRotation);
  std::ranges::sort(names, {}, [](const std::string& name) { return name.empty() ? '\0' : name.back(); });
  for (const std::string& name : names) {
    const std::string path = std::string(kRotation) + "/" + name;
    std::array<uint8_t, 64> buffer = {};
    uint32_t crc = 0;
    dm_read_db(path.c_str(), "sys", "unit_name", buffer.data(), &crc, buffer.size() - 1);
    const auto* owner = reinterpret_cast<const char*>(buffer.data());
    if (print) show("  %s  (%s)", name.c_str(), owner);
    owners += (owners.empty() ? "" : ", ") + std::filesystem::path(name).extension().string() + " " + owner;
  }
  return owners;
}

bool exists(const char* path) { return access(path, F_OK) == 0; }

// Argument: the number of the owner.
int tell_clean(const Arguments& arguments) {
  const Store store;
  const int number = std::stoi(arguments.at(0));
  char with_backup[] = "backup";
  store.write(kUnitName, owner_text(number));
  // Once three copies are there, the rotation's rm finds the last number moved away already and
  // complains. That is no failure, and looks like one.
  std::freopen("/dev/null", "w", stderr);
  const auto result = static_cast<int32_t>(vexa_dm_clean(store.handle(), with_backup));
  show("clean for %s: result %d; dated copies:", owner_text(number).c_str(), result);
  dated_copies(true);
  const bool gone = !exists(kPrimary) && !exists(kBackup) && !exists(kJournal);
  // Until this process ends, writes reach only its memory.
  const bool memory_only =
      store.write(kUnitName, "nobody") && store.shown(kUnitName) == "nobody" && !exists(kPrimary);
  return report(
      {result == 0 && gone && memory_only && exists(kDefaults), "cleaned", gone ? "cleaned" : "files left"});
}

int tell_after_clean(const Arguments&) {
  const Store store;
  say("The next start is a first start again, except that the stored defaults are still there:");
  show("%s", contents_of("/data").c_str());
  const std::string name = store.shown(kWifiSsid);
  show("Wi-Fi name %s", name.c_str());
  const std::string fallback = default_bytes(item(kWifiSsid));
  return report({name == fallback, fallback, name});
}

// The name of a copy is its date and time: the next one shall have another.
void wait_for_next_second() {
  const std::time_t now = std::time(nullptr);
  while (std::time(nullptr) == now) {
    const timespec moment = {0, 20'000'000};
    nanosleep(&moment, nullptr);
  }
}

Finding run_cleans() {
  say("The router changes hands %d times. Each owner gives it a name and cleans it before", kCleans);
  say("passing it on; a dated copy is kept of the last three:");
  int cleaned = 0;
  for (int number = 1; number <= kCleans; ++number) {
    if (number > 1) wait_for_next_second();
    cleaned += run_step({"clean", std::to_string(number)}).passed ? 1 : 0;
  }
  const Finding copies = run_step({"dated-copies"});
  const Finding started = run_step({"after-clean"});
  const std::string expected = ".db1 owner 3, .db2 owner 4, .db3 owner 5";
  const std::string count = std::to_string(kCleans) + " cleans, ";
  return {cleaned == kCleans && copies.found == expected && started.passed, count + expected,
          std::to_string(cleaned) + " cleans, " + copies.found};
}

int tell_dated_copies(const Arguments&) {
  quiet_log();
  return report({true, "copies", dated_copies(false)});
}

constexpr std::array kSteps = {
    Step{"The CSV export", [] { return run_step({"export"}); }},
    Step{"Clean, with dated backups that rotate", run_cleans},
};

constexpr std::array kModes = {
    Mode{"export", tell_export},
    Mode{"clean", tell_clean},
    Mode{"dated-copies", tell_dated_copies},
    Mode{"after-clean", tell_after_clean},
};

}  // namespace

std::span<const Step> file_steps() { return kSteps; }
std::span<const Mode> file_modes() { return kModes; }

}  // namespace demo
