// SPDX-License-Identifier: MIT
// One operation made to fail at every place in turn, and everything that has to hold each time.
#ifndef VEXADM_TESTS_FAULTS_FAULT_CASE_H
#define VEXADM_TESTS_FAULTS_FAULT_CASE_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "faults/failing_alloc.h"
#include "faults/failing_calls.h"
#include "faults/failing_operations.h"
#include "faults/failing_report.h"
#include "faults/fault_table.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace vexa_test {

// ---- The caveats' words for a write that 0 answered and a read does not give ----

inline constexpr char kNotStored[] = "0 once the table exists";
inline constexpr char kNotCopied[] = "0 with the backup not refreshed";
inline constexpr char kCheckMisled[] = "read error during the quick check";
// And for a primary in which a killed writer's half is left.
inline constexpr char kJournalUnseen[] = "a killed writer's rollback journal that could not be seen";

inline std::string operation_name(const ::testing::TestParamInfo<Operation>& tested) {
  return tested.param.name;
}

// ---- Trying ----

// Cases for one operation: the most of them all, in the long form.
inline std::uint64_t cases_wanted(std::uint64_t everyday) {
  const char* const text = std::getenv("VEXA_FAULT_CASES");  // "all": every call, every error
  if (text != nullptr && std::strcmp(text, "all") == 0) return UINT64_MAX;
#if !VEXA_TEST_OWN_ALLOC
  everyday /= 2;
#endif
  return how_many_cases("VEXA_FAULT_CASES", everyday, UINT64_MAX);
}

template <typename Injector>
class FaultRun {
 public:
  FaultRun(const Operation& operation, const char* kind) : operation_(operation) {
    count_.kind = kind;
    void* const memory =
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    g_report = static_cast<Report*>(memory);
    Device::clear();
    if (operation.prepare != nullptr) operation.prepare();
    device_.keep();
  }
  FaultRun(const FaultRun&) = delete;
  FaultRun& operator=(const FaultRun&) = delete;
  ~FaultRun() {
    report(count_);
    munmap(g_report, sizeof(Report));
  }

  // Runs without a fault; the number of places at which one can be put. What is answered and
  // logged now is what an undisturbed operation answers and logs.
  std::uint64_t places(const char* path = "") {
    usual_.clear();
    undisturbed_ = true;
    attempt({0, 1, 0, path});
    undisturbed_ = false;
    result_ = g_report->result;
    usual_ = logged_texts();
    own_ = g_report->own;
    --count_.tried;
    return g_report->seen;
  }

  // Each step-th place, and all where the library itself acts and not SQLite.
  bool is_chosen(std::uint64_t place, std::uint64_t step) const {
    return (place - 1) % step == 0 || (is_own(place) && !(is_emulated() && place % kOneOfEmulated != 0));
  }
  bool is_own(std::uint64_t place) const {
    return operation_.thorough && place <= own_.size() && own_[static_cast<std::size_t>(place - 1)];
  }

  // Too many of them only repeat themselves.
  bool goes_on() const { return count_.failed < 10; }
  std::uint64_t aborted() const { return aborted_; }

  // A disturbance that must not be noticed at all.
  void attempt_unfailing(const FaultPlan& plan) {
    const std::uint64_t named = count_.with_a_name;
    attempt(plan);
    EXPECT_EQ(count_.with_a_name, named) << "something is given up";
    EXPECT_EQ(unusual_lines(), std::vector<std::string>()) << "something is said";
  }

  // One plan, with everything that has to hold.
  void attempt(const FaultPlan& plan) {
    if (operation_.item != nullptr) device_.put_back();
    const auto& parts = *::testing::UnitTest::GetInstance()->current_test_info()->result();
    const int failures = parts.total_part_count();
    std::memset(static_cast<void*>(g_report), 0, offsetof(Report, log));
    const Ending during = in_child<Injector>([&] { run_with(plan); });
    ++count_.tried;
    named_ = false;
    SCOPED_TRACE(std::string(operation_.name) + ": place " + std::to_string(plan.from) +
                 (plan.count == 1 ? " once" : " and on") + plan.path + plan.call + ", error " +
                 std::to_string(plan.error) + ", " + g_report->first_failed + ", result " +
                 std::to_string(g_report->result) + ", log:\n" + whole_log());
    if (during.signal != 0) {
      expect_assertion(during);
    } else {
      expect_answer(during);
    }
    if (operation_.item != nullptr) expect_next_start();
    if (parts.total_part_count() != failures) ++count_.failed;
  }

 private:
  void run_with(const FaultPlan& plan) {
    Report& report = *g_report;
    set_print_interface(note_line);
    warm_up();
    if (operation_.before != nullptr) operation_.before();
    vexa_set_log_level(2);
    report.log_size = 0;
    report.fds_before = open_descriptors();
    const std::int64_t blocks = live_blocks();
    {
      const Injector injector(plan);
      report.result = operation_.run();
    }
    if (operation_.settle != nullptr) report.result = operation_.settle(report.result);
    report.blocks = live_blocks() - blocks;
    report.seen = Injector::seen();
    report.failed = Injector::failed();
    report.unsynced_renames = FailingCalls::unsynced_renames();
    for (std::size_t i = 0; undisturbed_ && i < report.own.size(); ++i)
      report.own[i] = Injector::is_own(i + 1);
    std::snprintf(report.first_failed, sizeof report.first_failed, "%s", Injector::first_failed());
    report.fds_after = open_descriptors();
    report.no_child = waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
    set_print_interface(nullptr);
    vexa_set_log_level(4);
    // Before the files are looked at: a connection of the operation's may still hold a lock.
    if (operation_.after != nullptr) operation_.after();
    if (operation_.item != nullptr) {
      report.kept = operation_.kept == nullptr || operation_.kept();
      report.primary_found =
          std::filesystem::exists(DB_CONFIG) ? look_in(DB_CONFIG, *operation_.item).found : 0U;
      const Looked found = look(*operation_.item);
      report.found = found.found;
      report.found_code = found.code;
    }
#if defined(__SANITIZE_ADDRESS__)
    report.leaked = __lsan_do_recoverable_leak_check();
#endif
    report.done = true;
  }

  // What SQLite and the C library keep from their first use on is no leak. Writes nothing: the
  // first round would find another file than the others, and count its places differently.
  static void warm_up() {
    sqlite3* db = nullptr;
    sqlite3_open("/tmp/warm.db", &db);
    sqlite3_exec(db, "select count(*) from sqlite_master", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    char message[VEXA_LOG_MESSAGE_SIZE];
    vexa_log_printf(4, message, "warm_up", 0, "time zone, streams");
    std::printf(" ");
    std::fflush(stdout);
  }

  static std::string whole_log() {
    std::string log;
    for (const std::string& text : logged_texts()) log += "  " + ::testing::PrintToString(text) + "\n";
    return log;
  }

  // Lines that an undisturbed run does not have.
  std::vector<std::string> unusual_lines() const {
    std::vector<std::string> unusual;
    for (const std::string& text : logged_texts()) {
      if (std::find(usual_.begin(), usual_.end(), text) == usual_.end()) unusual.push_back(text);
    }
    return unusual;
  }

  // A line whose message buffer could not be had stands there without its message.
  static bool lost_its_message(const std::string& text) {
    return std::is_same_v<Injector, FailingAlloc> && text.ends_with("|");
  }

  static bool is_line_of(const std::string& text, std::string_view pattern) {
    if (!lost_its_message(text)) return log_matches(text, pattern);
    return text == pattern.substr(0, pattern.find('|') + 1);
  }

  void expect_assertion(const Ending& during) {
    EXPECT_EQ(during.signal, SIGABRT) << during.output;
    EXPECT_NE(*operation_.assertion, '\0') << "no assertion is documented: " << during.output;
    EXPECT_NE(during.output.find(operation_.assertion), std::string::npos) << during.output;
    ++aborted_;
  }

  void expect_answer(const Ending& during) {
    const Report& report = *g_report;
    EXPECT_TRUE(report.done) << during.output;
    EXPECT_EQ(report.fds_after, report.fds_before) << "descriptors left open";
    EXPECT_TRUE(report.no_child) << "a child is left behind";
    EXPECT_TRUE(report.blocks == 0 || operation_.keeps_memory) << report.blocks << " blocks not given back";
    EXPECT_EQ(report.leaked, 0) << during.output;
    EXPECT_EQ(report.unsynced_renames, 0u) << "a copy took its name before it was on storage";
    if (report.failed == 0 && !undisturbed_) {
      EXPECT_EQ(report.result, result_) << "nothing failed";
    }
    expect_documented();
    if (operation_.item == nullptr) return;
    EXPECT_NE(report.found & operation_.found, 0u)
        << "found " << report.found << ", code " << report.found_code;
    if (undisturbed_) {
      EXPECT_TRUE(report.kept) << "undisturbed";
    } else if (report.result == result_ && !report.kept) {
      name_the_loss();
    }
  }

  // The code, the line that goes with it, and no line that the contract does not have.
  void expect_documented() {
    const std::vector<std::string> texts = logged_texts();
    for (const std::string& text : texts) {
      EXPECT_TRUE(lost_its_message(text) || is_documented_line(text))
          << "no such line: " << ::testing::PrintToString(text);
    }
    bool documented = false;
    bool announced = false;
    for (const Answer& answer : operation_.answers) {
      if (answer.code != g_report->result) {
        expect_line_is_elsewhere(answer, texts);
        continue;
      }
      documented = true;
      announced = announced || *answer.line == '\0';
      for (const std::string& text : texts) announced = announced || is_line_of(text, answer.line);
    }
    EXPECT_TRUE(documented) << "undocumented code";
    EXPECT_TRUE(announced || !documented) << "a code without its line";
  }

  // A failure that was announced must not look like something else to the caller.
  void expect_line_is_elsewhere(const Answer& answer, const std::vector<std::string>& texts) const {
    if (answer.where == Line::kElsewhere || *answer.line == '\0') return;
    const auto own = [](const Answer& other) { return other.code == g_report->result; };
    for (const std::string& text : texts) {
      if (lost_its_message(text) || !log_matches(text, answer.line)) continue;
      const bool shared =
          std::any_of(operation_.answers.begin(), operation_.answers.end(), [&](const Answer& other) {
            return own(other) && *other.line != '\0' && log_matches(text, other.line);
          });
      EXPECT_TRUE(shared) << "the line of " << answer.code << ": " << ::testing::PrintToString(text);
    }
  }

  void name_the_loss() {
    const Report& report = *g_report;
    ASSERT_NE(operation_.given_up, nullptr) << "acknowledged, and not done";
    const std::vector<std::string> unusual = unusual_lines();
    EXPECT_TRUE(!unusual.empty() || operation_.silent_loss) << "acknowledged, not stored, and nothing said";
    const char* name = operation_.given_up;
    if (*name == '\0') {
      const bool stored = (report.primary_found & (operation_.found & ~unsigned{kOld})) != 0;
      const bool misled = std::any_of(unusual.begin(), unusual.end(), [](const std::string& text) {
        return text.find("orruption detected") != std::string::npos;
      });
      name = !stored ? kNotStored : (misled ? kCheckMisled : kNotCopied);
    }
    this->name(name);
    if (std::getenv("VEXA_FAULT_SHOW") != nullptr) {
      std::printf("  %s: %s: %s", name, report.first_failed, unusual.empty() ? "\n" : unusual[0].c_str());
    }
  }

  void name(const char* name) {
    ++count_.named[name];
    if (!named_) ++count_.with_a_name;
    named_ = true;
  }

  void expect_next_start() {
    Report& report = *g_report;
    report.done = false;
    const Ending next = in_child<NoInjector>([&] {
      vexa_set_log_level(4);
      vexa_dm_backend_ops slots = {};
      sqlite_reg(&slots);
      const Looked found = look(*operation_.item);
      report.found = found.found;
      report.found_code = found.code;
      report.other = other_is_unharmed();
      report.rows = rows_of(*operation_.item);
      report.next_write = store(*operation_.item, kNextValue);
      report.next_found = look(*operation_.item).found;
      report.other = report.other && other_is_unharmed();
      report.health = check_database_health(DB_CONFIG);
      report.backup_health = check_database_health(DB_CONFIGBAK);
      report.done = true;
    });
    EXPECT_TRUE(report.done && next.signal == 0) << "next start, signal " << next.signal << next.output;
    EXPECT_NE(report.found & operation_.found_at_start, 0u)
        << "at the next start found " << report.found << ", code " << report.found_code;
    EXPECT_TRUE(report.other || !operation_.keeps_other) << "the other item is harmed";
    EXPECT_EQ(report.next_write, 0);
    if (operation_.killed_writer && report.health == 1) {
      name(kJournalUnseen);
      return;
    }
    EXPECT_EQ(report.next_found, unsigned{kNext});
    EXPECT_EQ(report.health, 0u);
    EXPECT_EQ(report.backup_health, 0u);
    EXPECT_LE(report.rows, 1) << "rows of one key";
    for (const char* file :
         {"/data/config.db-journal", "/data/configbak.db-journal", "/data/state.db-journal"}) {
      EXPECT_FALSE(std::filesystem::exists(file)) << file << " is left beside";
    }
  }

  static int rows_of(const vexa_dm_item_desc& desc) {
    const std::string where = std::string(" from ") + desc.table + " where key='" + desc.key + "'";
    return std::atoi(query(kPrimary, "select count(*)" + where).c_str());
  }

  const Operation& operation_;
  Device device_;
  bool undisturbed_ = false;
  std::int64_t result_ = 0;
  std::vector<std::string> usual_;
  std::array<bool, 4096> own_ = {};
  bool named_ = false;  // the case at hand
  std::uint64_t aborted_ = 0;
  FaultCount count_;
};

}  // namespace vexa_test

#endif
