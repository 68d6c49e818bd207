// SPDX-License-Identifier: MIT
// Bad days: killed in the middle of a write, one file damaged, both files damaged.
#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "demo_files.h"
#include "demo_items.h"
#include "demo_screen.h"
#include "demo_steps.h"
#include "demo_store.h"

namespace demo {
namespace {

// ---- 6. kill -9 -----------------------------------------------------------

// The burst writes the numbers 1, 2, 3, ... to these in turn.
constexpr std::array<Id, 3> kCounters = {kBootCount, kReceivedKib, kSentKib};
constexpr int kRounds = 6;
constexpr uint32_t kWritesBeforeKill = 15;
constexpr long kKillStepNs = 600'000;

Id counter_of(uint32_t number) { return kCounters[number % kCounters.size()]; }

// Writes until killed. A number is sent once its write has been acknowledged.
int burst(const Arguments& arguments) {
  const Store store;
  for (auto number = static_cast<uint32_t>(std::stoul(arguments.at(0)));; ++number) {
    const Item& target = item(counter_of(number));
    if (!store.write(target.id, number_bytes(target, number)) || !send_number(number)) return 1;
  }
}

const char* state_text(int32_t state) {
  switch (state) {
    case WS_READY:
      return "begun";
    case WS_WRITE_DONE:
      return "primary written";
    case WS_BACKUP_DONE:
      return "complete";
    default:
      return "unknown";
  }
}

std::string leftovers() {
  std::string found;
  for (const std::string& name : names_in("/data")) {
    const bool copy = name.starts_with(".");
    if (copy || name.ends_with("-journal"))
      found += (copy ? ", half a copy " : ", a rollback journal ") + name;
  }
  return found;
}

// Arguments: the last acknowledged number of the burst.
int tell_after_kill(const Arguments& arguments) {
  quiet_log();
  const auto last = static_cast<uint32_t>(std::stoul(arguments.at(0)));
  const std::string left = leftovers();
  char table[VEXA_DM_NAME_SIZE + 1] = {};
  char key[VEXA_DM_NAME_SIZE + 1] = {};
  int32_t id = 0;
  int32_t type = 0;
  int32_t length = 0;
  int32_t state = 0;
  dm_read_state_db(table, key, &id, &type, &length, &state);

  const Store store;
  int found = 0;
  std::string values;
  for (const Id id_of_counter : kCounters) {
    // The newest acknowledged number of this counter, and the one that was under way, if it was its turn.
    uint32_t newest = last;
    while (counter_of(newest) != id_of_counter) --newest;
    uint32_t value = 0;
    const std::string bytes = store.read(id_of_counter);
    std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
    const bool under_way = counter_of(last + 1) == id_of_counter && value == last + 1;
    found += value == newest || under_way ? 1 : 0;
    values += " " + std::to_string(value);
  }
  show("acknowledged up to %u; journal: %s \"%s\"%s; counters now%s", last, key, state_text(state),
       left.c_str(), values.c_str());
  return report({found == static_cast<int>(kCounters.size()), "every counter", of(found, kCounters.size())});
}

// Starts a burst at a number, kills it, and returns the last acknowledged number.
uint32_t burst_and_kill(uint32_t first, int round) {
  Burst running({"burst", std::to_string(first)});
  uint32_t last = 0;
  for (uint32_t received = 0; received < kWritesBeforeKill; ++received) {
    if (!running.receive(last)) return 0;
  }
  // Another moment of the write in each round.
  const timespec moment = {0, round * kKillStepNs};
  nanosleep(&moment, nullptr);
  running.kill();
  for (uint32_t sent = 0; running.receive(sent);) last = sent;
  return last;
}

Finding run_kills() {
  say("A process writes three counters as fast as it can, 1, 2, 3, ... in turn, and says so");
  say("after each acknowledged write. It is killed (kill -9) in the middle, %d times, each", kRounds);
  say("time at another moment. Each following start must find every acknowledged number; the");
  say("one that was under way may be there or not:");
  Finding total = {true, std::to_string(kRounds) + " kills, 0 acknowledged values lost", ""};
  int lost_rounds = 0;
  uint32_t first = 1;
  for (int round = 0; round < kRounds; ++round) {
    const uint32_t last = burst_and_kill(first, round);
    if (last == 0) return {false, total.expected, "the burst ended early"};
    lost_rounds += run_step({"after-kill", std::to_string(last)}).passed ? 0 : 1;
    first = last + 2;
  }
  total.passed = lost_rounds == 0;
  total.found = std::to_string(kRounds) + " kills, " +
                (lost_rounds == 0 ? "0 acknowledged values lost"
                                  : "lost in " + std::to_string(lost_rounds) + " rounds");
  return total;
}

// ---- 7. The primary damaged -----------------------------------------------

int damage_file(const Arguments& arguments) { return damage(arguments.at(0)) ? 0 : 1; }

const char* verdict(const char* path) {
  switch (static_cast<int32_t>(check_database_health(path))) {
    case 0:
      return "healthy";
    case 1:
      return "corrupt";
    default:
      return "unreadable";
  }
}

void show_verdicts(const char* when) {
  show("%-14s config.db %s, configbak.db %s", when, verdict(kPrimary), verdict(kBackup));
}

bool both_healthy() { return check_database_health(kPrimary) == 0 && check_database_health(kBackup) == 0; }

int tell_primary_damaged(const Arguments&) {
  quiet_log();
  show_verdicts("before:");
  show_repair_log(true);
  const Store store;
  show_repair_log(false);
  show_verdicts("after:");
  const bool names_kept = store.read(kHostNames).find("printer,10.0.0.30;") != std::string::npos;
  // One of the settings is a counter that the bursts went on counting.
  const auto settings = changes().size() - 1;
  const int kept = changes_kept(store);
  show("Wi-Fi name %s, host names %s", store.shown(kWifiSsid).c_str(), store.shown(kHostNames).c_str());
  return report({both_healthy() && names_kept && kept == static_cast<int>(settings),
                 "healthy again, " + of(static_cast<int>(settings), settings) + " settings kept",
                 std::string(verdict(kPrimary)) + (both_healthy() ? " again, " : ", ") + of(kept, settings) +
                     " settings kept"});
}

Finding run_primary_damaged() {
  say("Flash goes bad: the first page of config.db is damaged. Whoever opens the file is told");
  say("\"malformed\" (SQLite's code 11). The next start repairs it from the backup:");
  if (!damage(kPrimary)) return {false, "a damaged primary", "it could not be damaged"};
  Finding finding = run_step({"primary-damaged"});
  const bool same = same_content(kPrimary, kBackup);
  say("%s", same ? "Primary and backup are the same, byte for byte." : "Primary and backup differ.");
  finding.passed = finding.passed && same;
  return finding;
}

// ---- 8. Both damaged ------------------------------------------------------

int tell_damage_while_running(const Arguments&) {
  const Store store;
  // By another process: this one must not open the files itself.
  if (!run_self({"damage", kPrimary}) || !run_self({"damage", kBackup})) return 1;
  show_verdicts("damaged:");
  show_repair_log(true);
  const std::string read = store.shown(kWifiSsid);
  show_repair_log(false);
  show_verdicts("after a read:");
  say("The read cannot trust the backup and answers with the default: %s.", read.c_str());
  say("A write refreshes the backup too:");
  show_repair_log(true);
  const bool written = store.write(kUnitName, "after the storm");
  show_repair_log(false);
  show_verdicts("after a write:");
  const std::string fallback = default_bytes(item(kWifiSsid));
  return report({read == fallback && written && both_healthy(),
                 "a read: " + fallback + "; a write: both healthy",
                 "a read: " + read + "; a write: " + (both_healthy() ? "both healthy" : "not both healthy")});
}

int tell_factory_start(const Arguments&) {
  quiet_log();
  show_verdicts("before:");
  show_repair_log(true);
  const Store store;
  show_repair_log(false);
  show_verdicts("after:");
  const int kept = changes_kept(store);
  const bool names_lost = store.read(kHostNames) == default_bytes(item(kHostNames));
  show("Wi-Fi name %s; host names %s", store.shown(kWifiSsid).c_str(), store.shown(kHostNames).c_str());
  say("What was set before the factory copy was taken is back; what was set later is gone.");
  const auto total = changes().size();
  const std::string all = of(static_cast<int>(total), total);
  return report({both_healthy() && names_lost && kept == static_cast<int>(total),
                 "a start: both healthy, " + all + " factory values",
                 std::string("a start: ") + (both_healthy() ? "both healthy, " : "not both healthy, ") +
                     of(kept, total) + " factory values"});
}

Finding run_both_damaged() {
  say("Now primary and backup are damaged together, while a process runs. It first reads the");
  say("Wi-Fi name, which it has not read before:");
  const Finding running = run_step({"damage-while-running"});
  say("Once more both are damaged, this time while the router is off. A start repairs both from");
  say("the factory copy:");
  if (!damage(kPrimary) || !damage(kBackup))
    return {false, running.expected, "the files could not be damaged"};
  const Finding started = run_step({"factory-start"});
  return {running.passed && started.passed, running.expected + "; " + started.expected,
          running.found + "; " + started.found};
}

constexpr std::array kSteps = {
    Step{"kill -9 in the middle of a write burst", run_kills},
    Step{"A damaged primary, repaired from the backup", run_primary_damaged},
    Step{"Primary and backup damaged, repaired from the factory copy", run_both_damaged},
};

constexpr std::array kModes = {
    Mode{"burst", burst},
    Mode{"after-kill", tell_after_kill},
    Mode{"damage", damage_file},
    Mode{"primary-damaged", tell_primary_damaged},
    Mode{"damage-while-running", tell_damage_while_running},
    Mode{"factory-start", tell_factory_start},
};

}  // namespace

std::span<const Step> fault_steps() { return kSteps; }
std::span<const Mode> fault_modes() { return kModes; }

}  // namespace demo
